// Making elements. Nothing of a record ever becomes markup: it is always the text of a node.

/// An element. Attributes that are null, undefined or false are left out, true is an empty one;
/// "on" holds listeners by event. Children are elements or texts; null and undefined are left out.
export function make(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (name === "on") {
            for (const [event, listener] of Object.entries(value))
                element.addEventListener(event, listener);
        } else if (value === true) {
            element.setAttribute(name, "");
        } else if (value !== null && value !== undefined && value !== false) {
            element.setAttribute(name, String(value));
        }
    }
    element.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined));
    return element;
}

export function button(text, onClick, attributes = {}) {
    return make("button", {type: "button", ...attributes, on: {click: onClick}}, text);
}

/// What a reader cannot see or what would turn the line around: controls, and marks of direction.
const UNSEEN = /[\u0000-\u0009\u000b-\u001f\u007f-\u009f\u061c\u200b-\u200f\u202a-\u202e\u2060-\u2069\ufeff]/g;

/// A text from elsewhere so that nothing of it is hidden.
export function visible(text) {
    return text.replace(UNSEEN, (character) =>
        "\u27e8U+" + character.codePointAt(0).toString(16).toUpperCase().padStart(4, "0") + "\u27e9");
}

/// A text from elsewhere: readable, in its own direction, and cut to a number of characters.
export function foreign(text, limit = Infinity, attributes = {}) {
    const whole = asText(text);
    const isCut = whole.length > limit;
    const shown = visible(isCut ? whole.slice(0, limit) : whole);
    return make("bdi", attributes, isCut ? `${shown}… (${count(whole.length, "character")})` : shown);
}

/// The same for one that is read: cut at first, with a button that shows the rest.
export function foreignBlock(text, attributes = {}) {
    const first = 4000;
    const whole = asText(text);
    const block = make("div", {class: "value", dir: "auto", ...attributes},
                       visible(whole.length > first ? whole.slice(0, first) : whole));
    if (whole.length <= first)
        return block;
    const more = button(`Show all ${count(whole.length, "character")}`, () => {
        block.textContent = visible(whole);
        more.remove();
    });
    return make("div", {}, block, more);
}

/// Any value of JSON as a text; nothing as an empty one.
export function asText(value) {
    if (value === null || value === undefined)
        return "";
    return typeof value === "object" ? JSON.stringify(value) : String(value);
}

/// A value of JSON as a list; an empty one where it is not a list.
export function asList(value) {
    return Array.isArray(value) ? value : [];
}

const WHOLE_NUMBER = new Intl.NumberFormat("en");

export function number(value) {
    return typeof value === "number" ? WHOLE_NUMBER.format(value) : asText(value);
}

export function count(amount, noun, plural = noun + "s") {
    return `${number(amount)} ${amount === 1 ? noun : plural}`;
}

/// How long something took, from microseconds.
export function duration(microseconds) {
    if (typeof microseconds !== "number")
        return "";
    if (microseconds < 1000)
        return `${microseconds} µs`;
    const milliseconds = microseconds / 1000;
    return milliseconds < 1000 ? `${milliseconds.toFixed(milliseconds < 10 ? 1 : 0)} ms`
                               : `${(milliseconds / 1000).toFixed(2)} s`;
}

/// A moment of the run, from microseconds since its beginning.
export function moment(microseconds) {
    return typeof microseconds === "number" ? (microseconds / 1e6).toFixed(3) : "";
}

/// The end of an address, which tells its nodes apart; the whole one where it is short.
export function shortAddress(address) {
    const parts = asText(address).split("/");
    const kept = 3;
    return parts.length > kept + 1 ? "…/" + parts.slice(-kept).join("/") : parts.join("/");
}

export function bytesOf(base64) {
    try {
        return Uint8Array.from(atob(base64), (character) => character.charCodeAt(0));
    } catch {
        return null;
    }
}

const UTF8 = new TextDecoder("utf-8", {fatal: true, ignoreBOM: true});

/// @return null when the bytes are not UTF-8
export function utf8(bytes) {
    try {
        return UTF8.decode(bytes);
    } catch {
        return null;
    }
}

export function hex(value, digits = 2) {
    return value.toString(16).padStart(digits, "0");
}

/// Bytes as a person reads them: as text where they are one.
export function readable(bytes) {
    return utf8(bytes) ?? Array.from(bytes, (byte) => hex(byte)).join(" ");
}

/// A value of the record, which is base64 where it is not text.
export function valueText(value, encoding) {
    if (encoding !== "base64")
        return asText(value);
    const bytes = bytesOf(asText(value));
    return bytes ? readable(bytes) : asText(value);
}

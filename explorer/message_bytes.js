// Which bytes of a message are which element, for both encodings. What cannot be read ends the list
// with a line that says where and why.
//
// An element is {depth, name, text, start, end, fault}: its bytes are those from start up to, and
// without, end.

import {asText, hex, readable} from "./dom.js";
import {SYNCML_TAGS, METINF_TAGS} from "./tables.js";

export function elementsOf(bytes) {
    return bytes[0] === 0x3c || bytes[0] === 0xef || isBlank(bytes[0]) ? xmlElements(bytes)
                                                                      : wbxmlElements(bytes);
}

/// The number of the innermost element of which the byte is a part; -1 where it is of none.
export function elementAt(elements, offset) {
    let found = -1;
    for (let index = 0; index < elements.length; ++index)
        if (elements[index].start <= offset && offset < elements[index].end)
            found = index;
    return found;
}

/// The number of the element that is the command with this CmdID; -1 where none is.
export function elementOfCommand(elements, cmdId) {
    const id = elements.findIndex((element) => element.name === "CmdID" && element.text === asText(cmdId));
    return id < 0 ? -1 : elements.findLastIndex((element, index) => index < id && element.depth < elements[id].depth);
}

/// Collects elements from the order in which they begin and end.
class ElementList {
    constructor(bytes) {
        this.bytes = bytes;
        this.elements = [];
        this.open = [];
    }

    begin(name, start) {
        this.open.push(this.elements.length);
        this.elements.push({depth: this.open.length - 1, name, text: "", start, end: this.bytes.length});
    }

    text(text) {
        if (this.open.length > 0)
            this.elements[this.open.at(-1)].text += text;
    }

    end(end) {
        if (this.open.length > 0)
            this.elements[this.open.pop()].end = end;
    }

    whole(name, text, start, end) {
        this.elements.push({depth: this.open.length, name, text, start, end});
    }

    fault(text, start) {
        this.elements.push({depth: this.open.length, name: "cannot be read", text: `byte ${start}: ${text}`, start,
                            end: this.bytes.length, fault: true});
        return this.elements;
    }
}

// ---- WBXML ---------------------------------------------------------------------------------------

const PUBLIC_IDS = {1: "unknown", 0x0fd3: "SyncML 1.1", 0x1201: "SyncML 1.2"};
const CHARACTER_SETS = {0: "unknown", 3: "US-ASCII", 106: "UTF-8"};
const SWITCH_PAGE = 0x00, END = 0x01, ENTITY = 0x02, INLINE_STRING = 0x03, TABLE_STRING = 0x83, OPAQUE = 0xc3;
const CONTENT_BIT = 0x40, ATTRIBUTES_BIT = 0x80, TAG_MASK = 0x3f, FIRST_TAG = 0x05;

/// A place in the bytes that moves on as they are read; what is missing is an error.
class ByteReader {
    constructor(bytes) {
        this.bytes = bytes;
        this.at = 0;
    }

    byte() {
        if (this.at >= this.bytes.length)
            throw new RangeError("the message breaks off");
        return this.bytes[this.at++];
    }

    /// In groups of seven bits, the highest first.
    number() {
        let value = 0;
        for (let more = true; more;) {
            const byte = this.byte();
            value = value * 128 + (byte & 0x7f);
            if (value > 0xffffffff)
                throw new RangeError("a number of more than 32 bits");
            more = (byte & 0x80) !== 0;
        }
        return value;
    }

    take(size) {
        if (size > this.bytes.length - this.at)
            throw new RangeError(`${size} bytes announced, but only ${this.bytes.length - this.at} are left`);
        this.at += size;
        return this.bytes.subarray(this.at - size, this.at);
    }

    string() {
        const end = this.bytes.indexOf(0, this.at);
        if (end < 0)
            throw new RangeError("a string without an end");
        const text = this.bytes.subarray(this.at, end);
        this.at = end + 1;
        return readable(text);
    }
}

function readPrologue(reader, list) {
    const part = (name, read, meaning) => {
        const start = reader.at;
        const value = read();
        list.whole(name, meaning(value), start, reader.at);
        return value;
    };
    const named = (names) => (value) => names[value] ?? `0x${hex(value)}`;
    part("WBXML version", () => reader.byte(), (value) => `${(value >> 4) + 1}.${value & 0x0f}`);
    if (part("public id", () => reader.number(), (value) => value === 0 ? "in the string table" : named(PUBLIC_IDS)(value)) === 0)
        part("its place", () => reader.number(), String);
    part("character set", () => reader.number(), named(CHARACTER_SETS));
    const size = part("size of the string table", () => reader.number(), String);
    const table = size > 0 ? part("string table", () => reader.take(size), readable) : new Uint8Array();
    return table;
}

export function wbxmlElements(bytes) {
    const list = new ElementList(bytes);
    const reader = new ByteReader(bytes);
    let start = 0;
    try {
        const table = readPrologue(reader, list);
        let page = 0;
        while (reader.at < bytes.length) {
            start = reader.at;
            const token = reader.byte();
            switch (token) {
            case SWITCH_PAGE: page = reader.byte(); break;
            case END: list.end(reader.at); break;
            case ENTITY: list.text(String.fromCodePoint(reader.number())); break;
            case INLINE_STRING: list.text(reader.string()); break;
            case TABLE_STRING: list.text(new ByteReader(table.subarray(reader.number())).string()); break;
            case OPAQUE: list.text(readable(reader.take(reader.number()))); break;
            default: beginTag(list, token, page, reader.at);
            }
        }
        return list.open.length > 0 ? list.fault("the message breaks off", bytes.length) : list.elements;
    } catch (error) {
        return list.fault(error.message, start);
    }
}

function beginTag(list, token, page, end) {
    const tag = token & TAG_MASK;
    if ((token & ATTRIBUTES_BIT) !== 0 || tag < FIRST_TAG)
        throw new RangeError(`token 0x${hex(token)} has no place in a SyncML message`);
    const name = [SYNCML_TAGS, METINF_TAGS][page]?.[tag] ?? `tag 0x${hex(tag)} of code page ${page}`;
    list.begin(name, end - 1);
    if ((token & CONTENT_BIT) === 0)
        list.end(end);
}

// ---- XML -----------------------------------------------------------------------------------------

const ENTITIES = {lt: "<", gt: ">", amp: "&", quot: "\"", apos: "'"};

function isBlank(byte) {
    return byte === 0x20 || byte === 0x09 || byte === 0x0a || byte === 0x0d;
}

function resolveEntities(text) {
    return text.replace(/&(?:#x([0-9a-fA-F]+)|#([0-9]+)|(\w+));/g, (whole, hexCode, code, name) => {
        if (name)
            return Object.hasOwn(ENTITIES, name) ? ENTITIES[name] : whole;
        const point = hexCode ? parseInt(hexCode, 16) : parseInt(code, 10);
        return point <= 0x10ffff ? String.fromCodePoint(point) : whole;
    });
}

export function xmlElements(bytes) {
    const list = new ElementList(bytes);
    // A character for each byte, so that places in the text are places in the bytes.
    let text = "";
    const piece = 0x8000;
    for (let at = 0; at < bytes.length; at += piece)
        text += String.fromCharCode(...bytes.subarray(at, at + piece));
    const part = (from, to) => readable(bytes.subarray(from, to));
    for (let at = 0; at < text.length;) {
        if (text[at] !== "<") {
            const end = text.indexOf("<", at) < 0 ? text.length : text.indexOf("<", at);
            const words = resolveEntities(part(at, end));
            if (words.trim() !== "")
                list.text(words);
            at = end;
            continue;
        }
        const [closing, length] = text.startsWith("<!--", at) ? ["-->", 3]
                                : text.startsWith("<![CDATA[", at) ? ["]]>", 3]
                                : text.startsWith("<?", at) ? ["?>", 2] : [">", 1];
        const found = text.indexOf(closing, at + 1);
        if (found < 0)
            return list.fault("a tag, comment or section without an end", at);
        const end = found + length;
        if (text.startsWith("<![CDATA[", at))
            list.text(part(at + 9, found));
        else if (text.startsWith("</", at))
            list.end(end);
        else if (text.startsWith("<?", at))
            list.whole("declaration", part(at, end), at, end);
        else if (!text.startsWith("<!", at))
            beginElement(list, part(at + 1, found), at, end);
        at = end;
    }
    return list.open.length > 0 ? list.fault("the message breaks off", bytes.length) : list.elements;
}

function beginElement(list, tag, start, end) {
    const name = tag.replace(/\/$/, "").trim().split(/\s/)[0];
    list.begin(name.slice(name.indexOf(":") + 1), start);
    if (tag.endsWith("/"))
        list.end(end);
}

// ---- A decoded message without its bytes ---------------------------------------------------------

/// The parts of a decoded message, where its bytes are not in the record.
export function elementsOfDecoded(decoded) {
    const elements = [];
    const add = (name, value, depth) => {
        const isBranch = value !== null && typeof value === "object";
        elements.push({depth, name, text: isBranch || value === null ? "" : String(value), start: 0, end: 0});
        if (isBranch)
            for (const [key, inner] of Object.entries(value))
                add(Array.isArray(value) ? asListName(inner, key) : key, inner, depth + 1);
    };
    for (const [key, value] of Object.entries(decoded ?? {}))
        add(key, value, 0);
    return elements;
}

function asListName(entry, index) {
    return typeof entry?.name === "string" ? entry.name : `${Number(index) + 1}`;
}

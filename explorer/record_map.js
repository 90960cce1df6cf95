// The bytes of a profile's record: as a map in colours by field, and as a table of its fields.

import {foreign, hex, make, utf8} from "./dom.js";
import {RECORD_FIELDS} from "./tables.js";

export const RECORD_SIZE = RECORD_FIELDS.at(-1).offset + RECORD_FIELDS.at(-1).size;
const WIDE_MAP = 32, NARROW_MAP = 16; // bytes in a row
const WIDE_MAP_REM = 51;

// The first one whose name a field's name begins with is its part.
const PARTS = [
    {name: "gprs", letter: "G", title: "packet data, GSM-GPRS"},
    {name: "csd2", letter: "D", title: "second circuit-switched set, GSM-CSD2"},
    {name: "csd", letter: "C", title: "circuit-switched data, GSM-CSD"},
    {name: "proxy1", letter: "1", title: "first proxy"},
    {name: "proxy2", letter: "2", title: "second proxy"},
    {name: "reserved", letter: "–", title: "reserved"},
    {name: "", letter: "R", title: "record"},
];

/// How many bytes a row of a map has, so that it fits into an element.
export function mapWidth(host) {
    const rem = parseFloat(getComputedStyle(document.documentElement).fontSize);
    return host.clientWidth === 0 || host.clientWidth / rem >= WIDE_MAP_REM ? WIDE_MAP : NARROW_MAP;
}

/// Has the maps of an element begin at the first byte that is marked, as far as they are in sight.
export function revealMarks(host) {
    for (const map of host.querySelectorAll(".map")) {
        const row = map.querySelector(".changed")?.closest(".map-row");
        if (row)
            map.scrollTop = Math.max(0, row.offsetTop - map.offsetTop - row.offsetHeight * 2);
    }
}

export function places(field) {
    return field.size === 1 ? `${field.offset}` : `${field.offset}–${field.offset + field.size - 1}`;
}

export function hasChange(field, changed) {
    for (let at = field.offset; at < field.offset + field.size; ++at)
        if (changed.has(at))
            return true;
    return false;
}

function partOf(field) {
    return PARTS.find((part) => field.name.startsWith(part.name));
}

export function recordMap({call, before, after, changed}, width) {
    const bytes = after ?? before;
    const rows = [];
    const fieldOfByte = RECORD_FIELDS.flatMap((field, index) => new Array(field.size).fill(index));
    for (let start = 0; start < bytes.length; start += width) {
        const cells = [];
        for (let at = start; at < Math.min(start + width, bytes.length); ++at) {
            const index = fieldOfByte[at];
            const field = RECORD_FIELDS[index];
            const part = field ? partOf(field) : PARTS.at(-1);
            const isFirst = field?.offset === at;
            cells.push(make("span", {
                class: `cell part-${part.name || "record"}${index % 2 ? " odd" : ""}${isFirst ? " first" : ""}${changed.has(at) ? " changed" : ""}`,
                title: field ? `byte ${at}: ${field.name}${changed.has(at) ? ", changed" : ""}` : `byte ${at}`,
                "data-byte": at,
            }, hex(bytes[at])));
        }
        rows.push(make("div", {class: "map-row"}, make("span", {class: "offset"}, String(start).padStart(4, " ")), cells));
    }
    const used = PARTS.filter((part) => RECORD_FIELDS.some((field) => partOf(field) === part));
    return make("figure", {},
        make("figcaption", {}, make("code", {}, foreign(call.function, 80)), " ", foreign(call.profile, 64),
             after ? ": the record after it" : ": the record before it"),
        make("p", {class: "legend"}, used.map((part) => make("span", {class: "key"},
            make("span", {class: `cell part-${part.name || "record"}`, "aria-hidden": "true"}, part.letter), ` ${part.title} `)),
            changed.size > 0 ? make("span", {class: "key"}, make("span", {class: "cell changed", "aria-hidden": "true"}, "4a"), " changed") : null),
        make("div", {class: "map", role: "img", tabindex: 0,
                     "aria-label": `Map of the record; ${changed.size} bytes changed. The table of its fields follows.`}, rows),
        fieldTable(before, after, changed));
}

function fieldTable(before, after, changed) {
    const rows = RECORD_FIELDS.filter((field) => !field.name.startsWith("reserved") || hasChange(field, changed)).map((field) => {
        const isOther = hasChange(field, changed);
        return make("tr", {class: isOther ? "different" : null},
            make("th", {scope: "row"}, make("code", {}, field.name)), make("td", {}, partOf(field).title),
            make("td", {class: "quantity"}, places(field)),
            make("td", {}, before ? foreign(fieldText(field, before), 200) : ""),
            make("td", {}, after ? foreign(fieldText(field, after), 200) : ""), make("td", {}, isOther ? "≠ changed" : ""));
    });
    return make("details", {class: "fields"}, make("summary", {}, "All its fields"),
        make("div", {class: "wide"}, make("table", {},
            make("thead", {}, make("tr", {}, ["Field", "Part", "Bytes", "Before", "After", ""].map((text) => make("th", {scope: "col"}, text)))),
            make("tbody", {}, rows))));
}

/// What a field of a record says, as a person reads it.
export function fieldText(field, bytes) {
    const part = bytes.subarray(field.offset, field.offset + field.size);
    if (field.isText) {
        const end = part.indexOf(0);
        const text = end < 0 ? part : part.subarray(0, end);
        return utf8(text) ?? Array.from(text, (byte) => hex(byte)).join(" ");
    }
    if (field.name.startsWith("reserved"))
        return part.every((byte) => byte === 0) ? "zeros" : Array.from(part, (byte) => hex(byte)).join(" ");
    if (/Dns\d$/.test(field.name))
        return Array.from(part).reverse().join(".");
    return String(part.reduceRight((value, byte) => value * 256 + byte, 0));
}

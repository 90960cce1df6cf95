// The bytes of a profile's record: as a map in colours by field, and as a table of its fields.

import {count, foreign, hex, make, utf8} from "./dom.js";
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
        const row = map.querySelector(".marked")?.closest(".map-row");
        if (row)
            map.scrollTop = Math.max(0, row.offsetTop - map.offsetTop - row.offsetHeight * 2);
    }
}

export function places(field) {
    return field.size === 1 ? `${field.offset}` : `${field.offset}–${field.offset + field.size - 1}`;
}

/// Whether two records have the same bytes in a field.
export function isFieldSame(field, before, after) {
    for (let at = field.offset; at < field.offset + field.size; ++at)
        if (before[at] !== after[at])
            return false;
    return true;
}

function partOf(field) {
    return PARTS.find((part) => field.name.startsWith(part.name));
}

/// @param caption  what stands above the map
/// @param before, after  the bytes; either may be missing
/// @param marked   offsets of the bytes that are marked
/// @param what     why they are: a word for people
export function recordMap({caption = null, before = null, after = null, marked, what}, width) {
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
                class: `cell part-${part.name || "record"}${index % 2 ? " odd" : ""}${isFirst ? " first" : ""}${marked.has(at) ? " marked" : ""}`,
                title: field ? `byte ${at}: ${field.name}${marked.has(at) ? `, ${what}` : ""}` : `byte ${at}`,
                "data-byte": at,
            }, hex(bytes[at])));
        }
        rows.push(make("div", {class: "map-row"}, make("span", {class: "offset"}, String(start).padStart(4, " ")), cells));
    }
    const used = PARTS.filter((part) => RECORD_FIELDS.some((field) => partOf(field) === part));
    return make("figure", {},
        caption ? make("figcaption", {}, caption) : null,
        make("p", {class: "legend"}, used.map((part) => make("span", {class: "key"},
            make("span", {class: `cell part-${part.name || "record"}`, "aria-hidden": "true"}, part.letter), ` ${part.title} `)),
            marked.size > 0 ? make("span", {class: "key"}, make("span", {class: "cell marked", "aria-hidden": "true"}, "4a"), ` ${what}`) : null),
        make("div", {class: "map", role: "img", tabindex: 0,
                     "aria-label": `Map of the record; ${count(marked.size, "byte")} marked as ${what}. The table of its fields follows.`}, rows),
        before && after ? fieldTable(before, after) : fieldsOf(bytes));
}

const isWorthShowing = (field, isOther) => !field.name.startsWith("reserved") || isOther;

function fieldTable(before, after) {
    const rows = RECORD_FIELDS.map((field) => [field, fieldText(field, before), fieldText(field, after), !isFieldSame(field, before, after)])
        .filter(([field, , , isOther]) => isWorthShowing(field, isOther))
        .map(([field, was, is, isOther]) => make("tr", {class: isOther ? "different" : null}, fieldCells(field),
            make("td", {}, foreign(was, 200)), make("td", {}, foreign(is, 200)), make("td", {}, isOther ? "≠ changed" : "")));
    return fieldDetails(["Before", "After", ""], rows);
}

function fieldsOf(bytes) {
    return fieldDetails(["Value"], RECORD_FIELDS.filter((field) => isWorthShowing(field, false)).map((field) =>
        make("tr", {}, fieldCells(field), make("td", {}, foreign(fieldText(field, bytes), 200)))));
}

function fieldCells(field) {
    return [make("th", {scope: "row"}, make("code", {}, field.name)), make("td", {}, partOf(field).title),
            make("td", {class: "quantity"}, places(field))];
}

function fieldDetails(columns, rows) {
    return make("details", {class: "fields"}, make("summary", {}, "All its fields"),
        make("div", {class: "wide"}, make("table", {},
            make("thead", {}, make("tr", {}, ["Field", "Part", "Bytes", ...columns].map((text) => make("th", {scope: "col"}, text)))),
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

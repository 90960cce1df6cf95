// What is stored, as a person reads it: the mapping files, and the record behind a node.

import {asText, bytesOf, count, foreign, make} from "./dom.js";
import {RECORD_SIZE, fieldText, mapWidth, places, recordMap} from "./record_map.js";
import {entryKey, storedProfile} from "./stored_states.js";

const entryLine = ({group, key, value}) => `[${asText(group)}] ${asText(key)} = ${asText(value)}`;

/// The whole of the mapping files.
/// @param changed  by file the entries, as entryKey has them, that are marked as changed
export function wholeFiles({files}, changed = new Map()) {
    return [...files].map(([file, {entries, reason}]) => make("details", {class: "mapping"},
        make("summary", {}, foreign(file, 200), `: ${count(entries.size, "entry", "entries")}`),
        reason ? make("p", {class: "problem"}, "✕ ", foreign(reason, 500)) : null,
        make("pre", {class: "difference"}, [...entries.values()].map((entry) => {
            const isChanged = changed.get(file)?.has(entryKey(entry));
            return make("span", {class: isChanged ? "plus" : null}, isChanged ? "+ " : "  ", foreign(entryLine(entry), 400), "\n");
        }))));
}

/// The record of the profile that a node shows, with the field of a leaf marked.
/// @param reason  why there is none, if it is known
export function storedRecord(state, uri, reason, host) {
    const profile = storedProfile(state, uri);
    const bytes = profile && bytesOf(profile.record);
    if (reason || !bytes)
        return make("p", {class: reason ? "problem" : "hint"},
                    reason ? ["✕ ", foreign(reason, 500)] : "No record of a profile is known for this node at this moment.");
    const {field} = profile;
    const marked = new Set(field ? Array.from({length: field.size}, (_, at) => field.offset + at) : []);
    return [
        make("p", {class: "stored-field"}, foreign(profile.name, 64), ` (ID ${profile.id}), ${RECORD_SIZE} bytes. `,
             field ? ["This leaf is ", make("code", {}, field.name), `, ${field.size === 1 ? "byte" : "bytes"} ${places(field)}: `,
                      make("b", {}, foreign(fieldText(field, bytes) || "(empty)", 300))] : ""),
        recordMap({after: bytes, marked, what: field ? field.name : "marked"}, mapWidth(host)),
    ];
}

// Behind a command, or a mount: what the plug-in asked of the handset for it, in order, and which
// bytes of which record and which lines of which file are other than before.

import {asList, asText, button, bytesOf, count, duration, foreign, foreignBlock, make, valueText} from "./dom.js";
import {isDifferent, isRefused, scenarioCommand} from "./record.js";
import {RECORD_SIZE, fieldText, isFieldSame, mapWidth, places, recordMap, revealMarks} from "./record_map.js";
import {entryKey} from "./stored_states.js";
import {wholeFiles} from "./stored_view.js";
import {RECORD_FIELDS} from "./tables.js";
import {statusBadge, statusSign} from "./timeline.js";

export class BehindPane {
    constructor(host, page) {
        this.host = host;
        this.page = page;
    }

    show(owner) {
        this.host.scrollTop = 0;
        this.host.replaceChildren(...(owner ? this.contents(owner) : [
            make("p", {class: "empty"}, "Choose a command: here stands what it did, and why.")]));
        this.reveal();
    }

    reveal() { revealMarks(this.host); }

    contents(owner) {
        const calls = owner.calls ?? [];
        const changes = calls.filter(changesRecord).map(recordChange);
        return [
            ...(owner.kind === "mount" ? mountHeading(owner) : commandHeading(owner)),
            section("Bytes of the record", changes.map((change) => changeSummary(change, owner))),
            ...(owner.kind === "mount" ? [] : this.commandFacts(owner)),
            section("What the plug-in said", pluginMessages(owner.pluginMessages)),
            section("Map of the record", changes.map((change) => changeMap(change, mapWidth(this.host)))),
            section("Mapping files", this.mappingFiles(owner, calls)),
            section(`Outside calls, in order (${calls.length})`, calls.length > 0 ? [callTable(calls)] : []),
            calls.length === 0 && owner.hasEnded !== false
                ? make("p", {class: "hint"}, "The plug-in asked nothing of the handset for this.") : null,
        ].filter(Boolean);
    }

    /// What changed in the files, and the whole of them as far as the record knows it.
    mappingFiles(owner, calls) {
        const changes = calls.filter(changesEntry);
        const changed = new Map();
        for (const call of changes)
            changed.set(asText(call.file), (changed.get(asText(call.file)) ?? new Set()).add(entryKey(call)));
        return [...fileDifferences(changes), ...wholeFiles(this.page.stored.leftBy(owner), changed)];
    }

    commandFacts(command) {
        const value = command.value === null || command.value === undefined ? null
                                                        : valueText(command.value, command.encoding);
        const rest = [...[command.format, command.type].filter(Boolean).map(asText),
                      command.cmdId ? `CmdID ${asText(command.cmdId)}` : "",
                      command.us === undefined ? "" : `took ${duration(command.us)}`].filter((fact) => fact !== "");
        const facts = [["Address", foreign(command.target)],
                       command.source ? [command.name === "Rename" ? "New name" : "From", foreign(command.source)] : null,
                       value === null ? null : ["Value", foreignBlock(value)],
                       rest.length > 0 ? ["Otherwise", foreign(rest.join(" · "))] : null].filter(Boolean);
        const scenario = scenarioCommand(command);
        return [
            make("dl", {}, facts.map(([name, text]) => [make("dt", {}, name), make("dd", {}, text)])),
            make("p", {class: "actions"},
                 command.message ? button(`Message ${asText(command.message)}`,
                     () => this.page.choose({kind: "message", id: command.message})) : null,
                 button("The tree after it", () => this.page.showTreeAfter(command)),
                 scenario ? button("Copy as a line of a scenario",
                     () => this.page.offerText("A line of a scenario", JSON.stringify(scenario))) : null),
        ].filter(Boolean);
    }
}

function commandHeading(command) {
    const state = isRefused(command) ? "refused" : isDifferent(command) ? "different" : "done";
    return [
        make("h2", {class: `outcome ${state}`}, statusSign(command), " ", asText(command.name), " ",
             foreign(asText(command.target).split("/").at(-1), 80), " → ", statusBadge(command)),
        command.reason ? make("p", {class: "problem"}, foreign(command.reason)) : null,
        ...command.notes.map(readBack),
        !command.hasEnded ? make("p", {class: "problem"}, "The run ended before this command did.") : null,
    ].filter(Boolean);
}

function mountHeading(mount) {
    return [make("h2", {}, "Mount of ", foreign(mount.root)),
            make("p", {}, mount.nodes === undefined ? "did not end" : count(mount.nodes, "node"),
                 ` · ${duration(mount.us)}`),
            mount.fault ? make("p", {class: "problem"}, "✕ ", foreign(mount.fault)) : null].filter(Boolean);
}

function readBack(note) {
    return make("p", {class: "problem note-text"}, "≠ ", foreign(note.note),
                note.when === "next mount" && !/next mount/.test(asText(note.note)) ? " (at the next mount)" : "");
}

function section(title, contents) {
    return contents.length > 0 ? make("section", {}, make("h3", {}, title), contents) : null;
}

const isTrace = ({level}) => level === 8;

/// What the plug-in said, in order. Traces, which come by the dozen, are folded away.
function pluginMessages(messages) {
    const shown = [];
    for (let at = 0; at < messages.length;) {
        let end = at;
        while (end < messages.length && isTrace(messages[end]))
            ++end;
        shown.push(end > at ? foldedTraces(messages.slice(at, end)) : pluginMessage(messages[at], "plugin-message"));
        at = Math.max(end, at + 1);
    }
    return shown;
}

function foldedTraces(traces) {
    const fold = make("details", {class: "traces"}, make("summary", {}, count(traces.length, "trace")));
    fold.addEventListener("toggle", () => fold.append(...traces.map((trace) => pluginMessage(trace, "trace"))),
                          {once: true});
    return fold;
}

function pluginMessage(message, kind) {
    return make("p", {class: kind}, foreign(message.text), make("span", {class: "place"}, " ", foreign(message.place, 100)));
}

// ---- Outside calls -------------------------------------------------------------------------------

function callTable(calls) {
    return make("div", {class: "wide"}, make("table", {class: "calls"},
        make("thead", {}, make("tr", {}, ["", "Call", "Of", "Result", "Time"].map((text) => make("th", {scope: "col"}, text)))),
        make("tbody", {}, calls.map((call, index) => make("tr", {class: hasFailed(call) ? "refused" : null},
            make("td", {class: "quantity"}, String(index + 1)), make("td", {}, make("code", {}, foreign(call.function, 80))),
            make("td", {}, callSubject(call)), make("td", {}, callResult(call)),
            make("td", {class: "quantity"}, duration(call.us)))))));
}

function hasFailed(call) {
    return call.event === "profile-call" ? Boolean(call.result) : call.result === false;
}

function callSubject(call) {
    if (call.event === "profile-call")
        return [foreign(call.profile, 64), call.id === undefined || call.id === null ? "" : ` (ID ${asText(call.id)})`];
    return [foreign(call.file, 80), call.key ? [": ", foreign([call.group, call.key].filter(Boolean).map(asText).join(" / "), 120)] : ""];
}

function callResult(call) {
    const result = asText(call.result);
    const read = /^get/.test(asText(call.function)) && call.after ? ["→ ", foreign(call.after, 120)] : null;
    const more = call.count !== undefined && call.count !== null ? `, ${count(call.count, "name")}` : "";
    return [hasFailed(call) ? `✕ ${result}` : result, more, read ? [" ", read] : "", call.reason ? [": ", foreign(call.reason, 300)] : ""];
}

// ---- Mapping files -------------------------------------------------------------------------------

function changesEntry(call) {
    return call.event === "setting-call" && !/^get/.test(asText(call.function)) && asText(call.before) !== asText(call.after);
}

function fileDifferences(changes) {
    const files = new Map();
    for (const call of changes) {
        const file = asText(call.file);
        if (!files.has(file))
            files.set(file, []);
        const name = `[${asText(call.group)}] ${asText(call.key)}`;
        const lines = files.get(file);
        if (call.before !== null && call.before !== undefined)
            lines.push(make("span", {class: "minus"}, "− ", foreign(`${name} = ${asText(call.before)}`, 400), "\n"));
        if (call.after !== null && call.after !== undefined)
            lines.push(make("span", {class: "plus"}, "+ ", foreign(`${name} = ${asText(call.after)}`, 400), "\n"));
    }
    return [...files].map(([file, lines]) => make("figure", {}, make("figcaption", {}, foreign(file, 200)),
                                                  make("pre", {class: "difference"}, lines)));
}

// ---- The record ----------------------------------------------------------------------------------

function changesRecord(call) {
    return call.event === "profile-call" && /Modify|Create|Delete/.test(asText(call.function)) &&
        Boolean(call.before || call.after);
}

/// What a call did to a record: both states of it, null for one that is not there, and the bytes that
/// are other than before.
function recordChange(call) {
    const before = call.before ? bytesOf(call.before) : null;
    const after = call.after ? bytesOf(call.after) : null;
    return {call, before, after, changed: new Set(changedOffsets(before, after))};
}

function changeMap({call, before, after, changed}, width) {
    const caption = [make("code", {}, foreign(call.function, 80)), " ", foreign(call.profile, 64),
                     after ? ": the record after it" : ": the record before it"];
    return recordMap({caption, before, after, marked: changed, what: "changed"}, width);
}

function changeSummary({call, before, after, changed}, owner) {
    const amount = before && after ? `${count(changed.size, "byte")} of ${RECORD_SIZE} changed`
                 : after ? `a new record of ${RECORD_SIZE} bytes` : `the record of ${RECORD_SIZE} bytes went`;
    return make("figure", {},
        make("figcaption", {}, make("code", {}, foreign(call.function, 80)), " ", foreign(call.profile, 64), `: ${amount}`),
        before && after ? changeTable({call, before, after, changed}, owner) : null);
}

function changedOffsets(before, after) {
    const offsets = [];
    for (let at = 0; before && after && at < Math.max(before.length, after.length); ++at)
        if (before[at] !== after[at])
            offsets.push(at);
    return offsets;
}

function changeTable({call, before, after, changed}, owner) {
    const fields = RECORD_FIELDS.filter((field) => !isFieldSame(field, before, after));
    const told = new Map(asList(call.changes).map((change) => [change?.field, change]));
    const rows = fields.map((field) => {
        const change = told.get(field.name);
        const was = change ? asText(change.before) : fieldText(field, before);
        const is = change ? asText(change.after) : fieldText(field, after);
        return make("tr", {}, make("th", {scope: "row"}, make("code", {}, field.name)),
                    make("td", {class: "quantity"}, places(field)), make("td", {}, foreign(was || "(empty)", 300)),
                    make("td", {}, make("b", {}, foreign(is || "(empty)", 300)), cutNote(field, is, owner)));
    });
    return make("div", {class: "wide"}, make("table", {class: "changes"},
        make("thead", {}, make("tr", {}, ["Field", "Bytes", "Before", "After"].map((text) => make("th", {scope: "col"}, text)))),
        make("tbody", {}, rows)));
}

/// Says how what was asked for did not fit into the field.
function cutNote(field, stored, owner) {
    if (owner.kind !== "command" || owner.value === null || owner.value === undefined || isRefused(owner))
        return null;
    const asked = valueText(owner.value, owner.encoding);
    const askedBytes = new TextEncoder().encode(asked).length;
    const storedBytes = new TextEncoder().encode(stored).length;
    if (field.isText && storedBytes > 0 && askedBytes > storedBytes && asked.startsWith(stored))
        return make("span", {class: "note-text"}, ` ≠ cut from ${askedBytes} to ${storedBytes} bytes`);
    const bits = field.size * 8;
    if (!field.isText && bits < 32 && /^-?\d+$/.test(asked) && asked !== stored &&
        String(((Number(asked) % 2 ** bits) + 2 ** bits) % 2 ** bits) === stored)
        return make("span", {class: "note-text"}, ` ≠ cut from ${asked} to its low ${bits} bits`);
    return null;
}

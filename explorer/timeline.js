// The timeline: server and client as two lanes, an arrow for each message, beneath each its commands.

import {asText, count, duration, foreign, make, moment, number, shortAddress, valueText} from "./dom.js";
import {challengesOf, decodedCommands, isDifferent, isRefused, lastAttempt} from "./record.js";
import {VirtualList} from "./virtual_list.js";

const LINE = 30, TWO_LINES = 52, ARROW = 46;
const SHOWN_VALUE = 60;
const SHOWN_REASON = 200;

export class Timeline {
    constructor(host, page) {
        this.page = page;
        this.filters = {refused: false, different: false, words: ""};
        this.list = new VirtualList(host, {
            label: "Timeline", heightOf, render: (row, element) => this.render(row, element),
            attributesOf: (row) => ({class: `row ${row.kind}${stateClass(row)}`}),
            onChoose: (row) => page.choose(choiceOf(row)),
        });
    }

    show(record) {
        this.record = record;
        this.filter();
    }

    /// Shows what the filters leave: each command that passes, under the message that it came with.
    filter() {
        const isFiltered = this.filters.refused || this.filters.different || this.filters.words !== "";
        this.rows = isFiltered ? passing(this.record, this.filters) : this.record.rows;
        this.list.setItems(this.rows);
        return {shown: this.rows.filter((row) => row.kind === "command").length, isFiltered};
    }

    choose(choice) {
        this.list.choose(this.rows.findIndex((row) => isSame(choiceOf(row), choice)));
    }

    /// The next command, in either direction, that was refused or reads back differently.
    step(direction) {
        const start = this.list.chosen;
        for (let index = start + direction; index >= 0 && index < this.rows.length; index += direction) {
            const {command} = this.rows[index];
            if (command && (isRefused(command) || isDifferent(command))) {
                this.list.move(index);
                return;
            }
        }
    }

    render(row, element) {
        const time = row.event?.t ?? row.command?.began ?? row.command?.t ?? row.message?.t ?? row.mount?.t;
        element.append(make("span", {class: "time"}, moment(time)),
                       make("span", {class: "track"}, RENDER[row.kind](row, this.record)));
    }
}

export function isSame(one, other) {
    return one?.kind === other?.kind && one?.id === other?.id;
}

/// What a row is about, as the address of the page has it.
function choiceOf(row) {
    switch (row.kind) {
    case "command": return {kind: "command", id: row.command.command};
    case "message": return {kind: "message", id: row.message.message};
    case "mount": return {kind: "mount", id: row.mount.mount};
    case "attempt": return {kind: "exchange", id: row.event.exchange};
    case "wait": return {kind: "exchange", id: row.event.exchange};
    default: return null;
    }
}

function heightOf(row) {
    if (row.kind === "message" || row.kind === "attempt")
        return ARROW;
    const hasSecondLine = row.kind === "command" && (row.command.reason || isDifferent(row.command));
    return hasSecondLine ? TWO_LINES : LINE;
}

function stateClass(row) {
    if (!row.command)
        return "";
    return (isRefused(row.command) ? " refused" : "") + (isDifferent(row.command) ? " different" : "");
}

function passing(record, filters) {
    const wanted = filters.words.toLowerCase();
    const passes = (command) =>
        (!(filters.refused || filters.different) || (filters.refused && isRefused(command)) ||
         (filters.different && isDifferent(command))) &&
        (wanted === "" || [command.target, command.source, command.value, command.reason, command.name]
            .some((text) => asText(text).toLowerCase().includes(wanted)));
    const rows = [];
    let message = null;
    for (const row of record.rows) {
        if (row.kind === "message")
            message = row;
        if (row.kind !== "command" || !passes(row.command))
            continue;
        if (message && row.command.message === message.message.message) {
            rows.push(message);
            message = null;
        }
        rows.push(row);
    }
    return rows;
}

// ---- The rows ------------------------------------------------------------------------------------

const RENDER = {
    message({message}, record) {
        const attempt = message.direction === "sent" ? null : lastAttempt(record, message);
        const isHttp = message.exchange !== undefined && message.exchange !== null;
        const request = isHttp && message.direction === "sent" ? lastAttempt(record, message)?.request : null;
        const facts = [
            `message ${message.message}`, request ? asText(request.method) : null,
            attempt?.response?.status ? `HTTP ${attempt.response.status}` : null, messageContents(message),
            `${number(message.size)} bytes`, message.encoding,
            attempt?.response?.us ? duration(attempt.response.us) : null,
        ].filter(Boolean);
        const challenges = challengesOf(message);
        return arrow(message.direction === "sent" ? "to-server" : "to-client", [
            words(facts.join(" · ")),
            challenges.length > 0 ? tag("challenge", foreign(challenges.join(", "), 80)) : null,
            message.fault ? tag("fault", "✕ cannot be read") : null,
        ]);
    },
    attempt({attempt, event}) {
        const problem = event.failure ? foreign(event.failure, SHOWN_REASON) : `HTTP ${asText(event.status)}`;
        const isBad = event.failure || event.status >= 400;
        return arrow(event.failure ? "to-server broken" : "to-client broken", [words(`attempt ${asText(attempt.number)} · ${duration(event.us)}`),
                                          tag(isBad ? "fault" : "", isBad ? "✕ " : "", problem)]);
    },
    wait({event}) {
        return line("wait", "◷", `waits ${duration(event.us)}: `, foreign(event.reason, SHOWN_REASON));
    },
    mount({mount}) {
        return line("mount", "⤓", "mount ", foreign(mount.root, SHOWN_REASON),
                    ` · ${mount.nodes === undefined ? "did not end" : count(mount.nodes, "node")} · ${duration(mount.us)} `,
                    mount.fault ? tag("fault", "✕ ", foreign(mount.fault, SHOWN_REASON)) : null);
    },
    note({event}) { return line("note", "·", foreign(event.text, SHOWN_REASON)); },
    end({event}) {
        return line("end", "■", event.kind ? `session ${asText(event.kind)}` : "end", event.reason ? ": " : "",
                    foreign(event.reason, SHOWN_REASON));
    },
    command({command}) {
        const value = command.value === null || command.value === undefined ? null
                                                        : valueText(command.value, command.encoding);
        const first = make("span", {class: "first"},
            make("b", {class: "name"}, asText(command.name)), " ",
            foreign(shortAddress(command.target), SHOWN_REASON, {class: "address", title: asText(command.target).slice(0, 2000)}),
            command.source ? [" ← ", foreign(shortAddress(command.source), SHOWN_VALUE)] : null,
            value === null ? null : [" = ", foreign(value, SHOWN_VALUE, {class: "data"})]);
        const second = secondLine(command);
        return make("span", {class: "card"}, statusSign(command), make("span", {class: "lines"}, first, second),
                    statusBadge(command));
    },
};

function messageContents(message) {
    if (message.fault || !message.decoded)
        return null;
    const commands = [...decodedCommands(message)].filter((command) => !["Status", "Results"].includes(command?.name));
    const answers = [...decodedCommands(message)].length - commands.length;
    return [commands.length > 0 ? count(commands.length, "command") : null,
            answers > 0 ? count(answers, "answer") : null].filter(Boolean).join(", ");
}

function secondLine(command) {
    const parts = [];
    if (command.reason)
        parts.push(foreign(command.reason, SHOWN_REASON));
    for (const note of command.notes)
        parts.push(make("span", {class: "note-text"}, "≠ ", foreign(note.note, SHOWN_REASON),
                        note.when === "next mount" && !/next mount/.test(asText(note.note)) ? " at the next mount" : ""));
    return parts.length > 0 ? make("span", {class: "second"}, parts.flatMap((part, index) => index ? [" · ", part] : [part]))
                            : null;
}

function words(text) {
    return make("span", {class: "words", title: text}, text);
}

function tag(kind, ...children) {
    return make("span", {class: `tag ${kind}`}, ...children);
}

function arrow(direction, label) {
    return make("span", {class: `arrow ${direction}`},
                make("span", {class: "label"}, make("span", {class: "direction"},
                     direction.startsWith("to-server") ? "to the server: " : "to the client: "), label),
                make("span", {class: "shaft", "aria-hidden": "true"}));
}

function line(kind, sign, ...children) {
    return make("span", {class: `line ${kind}`}, make("span", {class: "sign", "aria-hidden": "true"}, sign),
                make("span", {class: "first"}, ...children));
}

export function statusSign(command) {
    const [sign, meaning] = !command.hasEnded ? ["…", "not ended"]
        : isRefused(command) ? ["✕", "refused"] : isDifferent(command) ? ["≠", "reads back differently"]
        : ["✓", "done"];
    return make("span", {class: "sign", title: meaning}, sign);
}

export function statusBadge(command) {
    return make("span", {class: "status"},
                command.hasEnded ? `${asText(command.status)} ` : "did not end", foreign(command.meaning, 40));
}

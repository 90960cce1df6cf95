// A record as the panes look at it: what belongs together is joined by the numbers of its events.

import {asList, asText} from "./dom.js";

/// Reads the lines of a record. Lines that are not events, such as the last one of a run that was
/// killed, are counted and left out; events of kinds that this page does not know are left out.
export function readRecord(text) {
    const events = [];
    let brokenLines = 0;
    for (const line of text.split("\n").filter((one) => one.trim() !== "")) {
        try {
            events.push(JSON.parse(line));
        } catch {
            ++brokenLines;
        }
    }
    return recordOf(events, brokenLines);
}

/// The same of events that were read already.
export function recordOf(events, brokenLines = 0) {
    const record = {
        run: {}, end: null, brokenLines, rows: [],
        messages: new Map(), commands: new Map(), mounts: new Map(), exchanges: new Map(),
        trees: [], nextTrees: [], loose: [], storage: [],
    };
    for (const event of events) {
        try {
            take(record, event);
        } catch {
            ++record.brokenLines;
        }
    }
    finishRows(record);
    return record;
}

export const isRefused = (command) => command.status >= 400;
export const isDifferent = (command) => command.notes.length > 0;

/// A title for people: the words of the command line without the options.
export function runTitle(record) {
    const words = asList(record.run.arguments).map(asText).filter((word) => !word.startsWith("--"));
    return words.length > 0 ? words.join(" ") : "a run of " + (asText(record.run.program) || "dmclient");
}

const TAKES = {
    run(record, event) { record.run = event; },
    end(record, event) {
        record.end = event;
        record.rows.push({kind: "end", event});
    },
    mount(record, event) {
        const mount = mountOf(record, event.mount);
        Object.assign(mount, event);
        record.rows.push({kind: "mount", mount});
        record.storage.push(event);
    },
    mounted(record, event) {
        const {t, event: kind, ...rest} = event;
        Object.assign(mountOf(record, event.mount), rest);
    },
    request(record, event) {
        attemptOf(record, event).request = event;
    },
    response(record, event) {
        const attempt = attemptOf(record, event);
        attempt.response = event;
        record.rows.push({kind: "attempt", attempt, event});
    },
    wait(record, event) {
        exchangeOf(record, event.exchange).waits.push(event);
        record.rows.push({kind: "wait", event});
    },
    message(record, event) {
        const message = messageOf(record, event.message);
        Object.assign(message, event);
        if (event.exchange !== undefined && event.exchange !== null)
            exchangeOf(record, event.exchange)[event.direction === "sent" ? "sent" : "received"] = message;
        record.rows.push({kind: "message", message});
    },
    command(record, event) {
        const command = commandOf(record, event.command);
        Object.assign(command, event, {hasEnded: true});
        if (record.messages.has(event.message))
            record.messages.get(event.message).commands.push(command);
        record.rows.push({kind: "command", command});
    },
    "profile-call": takeBeneath("calls"),
    "setting-call": takeBeneath("calls"),
    "plugin-message": takeBeneath("pluginMessages"),
    stored(record, event) { record.storage.push(event); },
    tree(record, event) {
        (event.next ? record.nextTrees : record.trees).push(event);
    },
    "read-back"(record, event) { commandOf(record, event.command).notes.push(event); },
    note(record, event) { record.rows.push({kind: "note", event}); },
};

function take(record, event) {
    if (typeof event?.event !== "string")
        throw new TypeError("not an event");
    if (Object.hasOwn(TAKES, event.event))
        TAKES[event.event](record, event);
}

/// An event that names the command or the mount which it is beneath.
function takeBeneath(list) {
    return (record, event) => {
        const owner = event.command ? commandOf(record, event.command)
                    : event.mount ? mountOf(record, event.mount) : null;
        if (owner)
            owner[list].push(event);
        else
            record.loose.push(event);
        if (list === "calls")
            record.storage.push(event);
    };
}

function ofMap(map, key, make) {
    if (!map.has(key))
        map.set(key, make());
    return map.get(key);
}

function commandOf(record, id) {
    return ofMap(record.commands, id,
                 () => ({kind: "command", command: id, calls: [], pluginMessages: [], notes: [], hasEnded: false}));
}

function mountOf(record, id) {
    return ofMap(record.mounts, id, () => ({kind: "mount", mount: id, calls: [], pluginMessages: []}));
}

function messageOf(record, id) {
    return ofMap(record.messages, id, () => ({kind: "message", message: id, commands: []}));
}

function exchangeOf(record, id) {
    return ofMap(record.exchanges, id, () => ({attempts: new Map(), waits: [], sent: null, received: null}));
}

function attemptOf(record, event) {
    const exchange = exchangeOf(record, event.exchange);
    return ofMap(exchange.attempts, event.attempt, () => ({exchange, number: event.attempt}));
}

/// An attempt is a row of its own when no message came with it. A command without its end is one
/// that the run was killed in.
function finishRows(record) {
    record.rows = record.rows.filter((row) => row.kind !== "attempt" || !hasAnsweredMessage(row.attempt));
    for (const command of record.commands.values())
        if (!command.hasEnded)
            record.rows.push({kind: "command", command});
}

function hasAnsweredMessage(attempt) {
    const {exchange, response} = attempt;
    return Boolean(exchange.received) && !response.failure && attempt.number === Math.max(...exchange.attempts.keys());
}

/// What the last attempt of a message's exchange was, with its request and response.
export function lastAttempt(record, message) {
    const attempts = [...(record.exchanges.get(message.exchange)?.attempts.values() ?? [])];
    return attempts.at(-1) ?? null;
}

/// Commands of a decoded message, those inside of others included.
export function* decodedCommands(message) {
    const waiting = [...asList(message.decoded?.commands)];
    while (waiting.length > 0) {
        const command = waiting.shift();
        yield command;
        waiting.unshift(...asList(command?.commands));
    }
}

/// What a message asks of the other side's credentials: a challenge is of a status that refuses the
/// last ones, else it only brings the next nonce.
export function challengesOf(message) {
    return [...decodedCommands(message)].filter((command) => command?.chal).map((command) =>
        (["401", "407"].includes(asText(command.data)) ? "challenge: " : "next nonce: ") +
        asText(command.chal.type).replace(/^syncml:auth-/, ""));
}

/// A command as a line of a scenario of the scripted server.
export function scenarioCommand(command) {
    const name = asText(command.name).toLowerCase();
    const target = asText(command.target);
    const value = {};
    if (command.value !== null && command.value !== undefined && command.encoding !== "base64")
        value.data = asText(command.value);
    if (command.format)
        value.format = command.format;
    if (command.type)
        value.type = command.type;
    const expect = command.status === 200 || !command.status ? {} : {expect: command.status};
    switch (name) {
    case "get": return {get: target, ...expect};
    case "delete": return {delete: target, ...expect};
    case "exec": return {exec: target, ...expect};
    case "copy": return {copy: asText(command.source), to: target, ...expect};
    case "rename": return {rename: target, name: asText(command.source), ...expect};
    case "add": return {add: target, ...value, ...expect};
    case "replace": return {replace: target, ...value, ...expect};
    default: return null;
    }
}

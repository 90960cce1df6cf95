// What the tree of the handset was at each moment of a record.

import {asList, asText, valueText} from "./dom.js";

const CHECKPOINT_DISTANCE = 200;

/// The states that the tree events of a record lead through: state 0 is before all of them, state n
/// after n of them. What the next mount will change is one more.
export class TreeStates {
    constructor(record) {
        this.record = record;
        this.events = [...record.trees];
        this.hasNext = record.nextTrees.length > 0;
        if (this.hasNext)
            this.events.push(joined(record.nextTrees));
        this.checkpoints = [new Map()];
        const state = new Map();
        this.events.forEach((event, index) => {
            apply(state, event);
            if ((index + 1) % CHECKPOINT_DISTANCE === 0)
                this.checkpoints.push(new Map(state));
        });
    }

    get count() { return this.events.length + 1; }
    /// After everything that the run did.
    get after() { return this.events.length - (this.hasNext ? 1 : 0); }
    /// After the mounts that came before the first command which changed something.
    get before() {
        const first = this.events.findIndex((event) => !event.mount);
        return first < 0 ? this.after : first;
    }

    /// Nodes by address: {format, value, status}, a null value of one that has none.
    at(index) {
        const checkpoint = Math.floor(index / CHECKPOINT_DISTANCE);
        const state = new Map(this.checkpoints[checkpoint]);
        for (const event of this.events.slice(checkpoint * CHECKPOINT_DISTANCE, index))
            apply(state, event);
        return state;
    }

    /// The event that led to a state.
    causeOf(index) { return index > 0 ? this.events[index - 1] : null; }

    /// The state that a command, or a mount, has left; that of the last one before it where it has
    /// changed nothing.
    leftBy(owner) {
        const time = owner.t ?? Infinity;
        let found = 0;
        for (let index = 1; index <= this.after; ++index) {
            const event = this.events[index - 1];
            const isItsOwn = owner.kind === "mount" ? event.mount === owner.mount
                                                    : event.command === owner.command;
            if (isItsOwn)
                return index;
            if (this.timeOf(event) <= time)
                found = index;
        }
        return found;
    }

    /// When it happened: the look that found it may have come later.
    timeOf(event) {
        const mount = this.record.mounts.get(event.mount);
        return this.record.commands.get(event.command)?.t ?? (mount ? mount.t + (mount.us ?? 0) : event.t);
    }

    /// The moments at which something happened to a node: {index, event, what, value}.
    historyOf(uri) {
        const history = [];
        this.events.forEach((event, index) => {
            for (const node of asList(event.appeared))
                if (node?.uri === uri)
                    history.push({index: index + 1, event, what: "appeared", value: nodeOf(node).value});
            for (const node of asList(event.changed))
                if (node?.uri === uri)
                    history.push({index: index + 1, event, what: "changed", value: nodeOf(node).value});
            if (asList(event.went).includes(uri))
                history.push({index: index + 1, event, what: "went", value: null});
        });
        return history;
    }
}

/// The changes between two states: {uri: "appeared" | "changed" | "went"}.
export function changesBetween(from, to) {
    const changes = new Map();
    for (const [uri, node] of to) {
        const old = from.get(uri);
        if (!old)
            changes.set(uri, "appeared");
        else if (old.value !== node.value || old.format !== node.format)
            changes.set(uri, "changed");
    }
    for (const uri of from.keys())
        if (!to.has(uri))
            changes.set(uri, "went");
    return changes;
}

function nodeOf(entry) {
    const hasValue = entry.value !== undefined && entry.value !== null;
    return {format: asText(entry.format), status: entry.status,
            value: hasValue ? valueText(entry.value, entry.encoding) : null};
}

function apply(state, event) {
    for (const uri of asList(event.went))
        state.delete(asText(uri));
    for (const entry of asList(event.appeared))
        state.set(asText(entry.uri), nodeOf(entry));
    for (const entry of asList(event.changed)) {
        const uri = asText(entry.uri);
        const node = nodeOf(entry);
        state.set(uri, {...node, format: node.format || (state.get(uri)?.format ?? "")});
    }
}

function joined(events) {
    return {next: true, appeared: events.flatMap((event) => asList(event.appeared)),
            changed: events.flatMap((event) => asList(event.changed)),
            went: events.flatMap((event) => asList(event.went))};
}

/// The lines of a tree of addresses, parents before children: {uri, name, depth, node, hasChildren}.
/// Nodes without a parent in the state get one, so that each has its place.
export function treeLines(nodes, isClosed) {
    const children = new Map();
    const known = new Set();
    const place = (uri) => {
        for (let at = uri; !known.has(at);) {
            known.add(at);
            const parent = at.includes("/") ? at.slice(0, at.lastIndexOf("/")) : null;
            if (!children.has(parent))
                children.set(parent, []);
            children.get(parent).push(at);
            if (parent === null)
                break;
            at = parent;
        }
    };
    for (const uri of nodes.keys())
        place(uri);
    const lines = [];
    const waiting = (children.get(null) ?? []).map((uri) => [uri, 0]).reverse();
    while (waiting.length > 0) {
        const [uri, depth] = waiting.pop();
        const beneath = children.get(uri) ?? [];
        lines.push({uri, name: uri.slice(uri.lastIndexOf("/") + 1), depth, node: nodes.get(uri) ?? {format: "node", value: null},
                    hasChildren: beneath.length > 0});
        if (!isClosed(uri))
            for (const child of [...beneath].reverse())
                waiting.push([child, depth + 1]);
    }
    return lines;
}

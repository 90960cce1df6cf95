// What differs between two records: commands that belong together, and the trees at the end.

import {asText, valueText} from "./dom.js";
import {TreeStates, changesBetween} from "./tree_states.js";

/// What of two commands is compared.
export const COMPARED = ["status", "value", "reason", "note"];

/// Pairs of commands: {key, first, second, differences}; what only one record has is alone in its
/// pair. The nth command of a name on an address belongs to the nth such one of the other record.
export function pairCommands(first, second) {
    const left = keyed(first);
    const right = keyed(second);
    const order = [...left.keys()];
    const places = new Map(order.map((key, index) => [key, index]));
    let place = 0;
    const additions = [];
    for (const key of right.keys()) {
        if (places.has(key))
            place = places.get(key) + 1;
        else
            additions.push([place, key]);
    }
    // By the place in the first record; in the order of the second one where it is the same.
    additions.sort((one, other) => one[0] - other[0]);
    const pairs = [];
    for (let index = 0, next = 0; index <= order.length; ++index) {
        for (; next < additions.length && additions[next][0] === index; ++next)
            pairs.push(pairOf(additions[next][1], left, right));
        if (index < order.length)
            pairs.push(pairOf(order[index], left, right));
    }
    return pairs;
}

function keyed(record) {
    const seen = new Map();
    const commands = new Map();
    for (const command of record.commands.values()) {
        const name = `${asText(command.name)} ${asText(command.target)}`;
        seen.set(name, (seen.get(name) ?? 0) + 1);
        commands.set(`${name} ${seen.get(name)}`, command);
    }
    return commands;
}

function pairOf(key, left, right) {
    const first = left.get(key) ?? null;
    const second = right.get(key) ?? null;
    return {key, first, second, differences: first && second
        ? COMPARED.filter((what) => compared(first, what) !== compared(second, what)) : ["only one record has it"]};
}

export function compared(command, what) {
    switch (what) {
    case "value": return valueText(command.value, command.encoding);
    case "note": return command.notes.map((note) => asText(note.note)).join("; ");
    default: return asText(command[what]);
    }
}

/// The nodes that are not the same at the end of both: {uri, what, first, second}.
export function treeDifferences(first, second) {
    const [left, right] = [first, second].map((record) => {
        const states = new TreeStates(record);
        return states.at(states.after);
    });
    return [...changesBetween(left, right)].map(([uri, what]) =>
        ({uri, what, first: left.get(uri), second: right.get(uri)}));
}

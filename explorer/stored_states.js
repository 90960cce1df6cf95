// What the handset had stored at each moment of a record, as far as the record knows it: the bytes of
// the profiles' records, and the entries of the mapping files, which say what node shows which profile.

import {asList, asText} from "./dom.js";
import {RECORD_FIELDS} from "./tables.js";

const CONN_ROOT = "./DevDetail/Ext/Conf/Conn/Profiles";
const PROXY_ROOT = "./DevDetail/Ext/Conf/IntProfs/Profiles";
/// The group of a mapping file whose values are the names of a root's nodes.
const GROUPS = new Map([[CONN_ROOT, "NAPIDEF_Profile"], [PROXY_ROOT, "PROXY_Profile"]]);

/// What a field's name begins with, by what a key ends with behind the profile's number.
const BEARER_PARTS = {Ph1DC1: "gprs", Ph2DC1: "csd", Ph3DC1: "csd2"};
/// What a field's name ends with, by the leaf beneath a profile's node.
const BEARER_LEAVES = {
    "Addr": "Address", "DNS1": "Dns1", "DNS2": "Dns2", "Linger": "Linger", "Speed": "SpeedCode", "LineType": "SpeedCode",
    "Auth/PAP/AuthId": "AuthId", "Auth/PAP/AuthPw": "AuthPassword",
};
const PROXY_LEAVES = {
    "Ph1/Addr": "proxy1Address", "Ph1/Port/PortNbr": "proxy1Port", "Ph2/Addr": "proxy2Address", "Ph2/Port/PortNbr": "proxy2Port",
    "UserEditable": "flags",
};

export class StoredStates {
    /// @param steps  events of a record that tell of what is stored, in their order
    constructor(steps) {
        this.steps = steps;
    }

    /// What is stored at a moment: {profiles: by ID {name, record}, files: by name {entries, reason}}.
    atTime(t) {
        const end = this.steps.findIndex((step) => step.t > t);
        return this.after(end < 0 ? this.steps.length : end);
    }

    /// What a command or a mount has left. What is beneath it came before its own event.
    leftBy(owner) {
        const own = this.steps.findLastIndex((step) => step.event.endsWith("-call") && step[owner.kind] === owner[owner.kind]);
        return own < 0 ? this.atTime(owner.t ?? Infinity) : this.after(own + 1);
    }

    after(count) {
        const state = {profiles: new Map(), files: new Map(), opened: null};
        for (const step of this.steps.slice(0, count))
            STEPS[step.event](state, step);
        return state;
    }

    /// Why nothing is stored for a node, as was found out last; empty when nothing was, or something is.
    reasonFor(uri) {
        return asText(this.steps.findLast((step) => step.event === "stored" && step.uri === uri)?.reason);
    }
}

const STEPS = {
    // The plug-in discards the mapping file of a root before it opens it.
    mount(state) { state.opened = new Set(); },

    "profile-call"(state, call) {
        if (call.result || call.id === undefined)
            return;
        if (call.function === "NAPI_DeleteProfile")
            state.profiles.delete(call.id);
        else if (call.after)
            state.profiles.set(call.id, {name: asText(call.profile), record: call.after});
    },

    "setting-call"(state, call) {
        const entries = entriesOf(state, asText(call.file));
        const key = entryKey(call);
        if (call.function === "open") {
            if (call.mount && state.opened?.size === 0)
                entries.clear();
            state.opened?.add(call.file);
        } else if (call.function === "removeEntry" || (call.function === "getSettingInfo" && call.result === false)) {
            entries.delete(key);
        } else if (call.result !== false && call.key && typeof call.after === "string") {
            entries.set(key, {group: asText(call.group), key: asText(call.key), value: call.after});
        }
    },

    stored(state, event) {
        if (event.record)
            state.profiles.set(event.id, {name: asText(event.profile), record: event.record});
        for (const file of asList(event.files))
            state.files.set(asText(file.file), {reason: asText(file.reason),
                                                entries: new Map(asList(file.entries).map((entry) => [entryKey(entry), entry]))});
    },
};

/// Tells entries of a file apart.
export function entryKey({group, key}) {
    return `${asText(group)}\n${asText(key)}`;
}

function entriesOf(state, file) {
    if (!state.files.has(file))
        state.files.set(file, {reason: "", entries: new Map()});
    return state.files.get(file).entries;
}

/// The root of profiles that a node is at or beneath, and its names beneath that: null for others.
function placeOf(uri) {
    const root = [...GROUPS.keys()].find((one) => uri === one || uri.startsWith(one + "/"));
    return root ? {root, names: uri.slice(root.length + 1).split("/").filter(Boolean).map(plainName)} : null;
}

/// A name without the escapes that addresses have.
function plainName(name) {
    try {
        return decodeURIComponent(name);
    } catch {
        return name;
    }
}

/// Whether something is stored for a node, or for those beneath it.
export function isStored(uri) { return placeOf(uri) !== null; }

/// The profile that a node shows, or is in the subtree of: {id, name, record, field}, the field being that
/// of a leaf, if any. Null when nothing is known of one.
export function storedProfile(state, uri) {
    const {root, names} = placeOf(uri) ?? {names: []};
    if (names.length === 0)
        return null;
    const shown = [...state.files.values()].flatMap((file) => [...file.entries.values()])
        .filter((entry) => entry.group === GROUPS.get(root) && entry.value === names[0])
        .map((entry) => /^(\d+)(.*)$/.exec(entry.key)).filter(Boolean);
    const profile = shown.length === 1 ? state.profiles.get(Number(shown[0][1])) : undefined;
    if (!profile)
        return null;
    const leaf = names.slice(1).join("/");
    const name = root === PROXY_ROOT ? PROXY_LEAVES[leaf] : (BEARER_PARTS[shown[0][2]] ?? "") + BEARER_LEAVES[leaf];
    return {...profile, id: Number(shown[0][1]), field: RECORD_FIELDS.find((field) => field.name === name) ?? null};
}

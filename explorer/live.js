// The page while a handset runs behind it.

import {listing} from "./dm_package.js";
import {Handset} from "./handset.js";
import {Page} from "./main.js";
import {recordOf} from "./record.js";
import {isStored} from "./stored_states.js";
import {WorkPane} from "./work_pane.js";

// What the page asks for itself, to show the tree, is not what a person wants to see.
const OWN_QUESTION = "urn:page-looks";
const SHOWN = ["./DevDetail", "./DMAcc"];
const OWN_LINES = SHOWN.map((uri) => `Get ${listing(uri).target}: `);
const CHANGES = new Set(["Add", "Replace", "Delete", "Copy", "Rename", "Exec", "Atomic"]);
const PAUSE = 80; // milliseconds, in which more may come

/// The nodes that a listing in a decoded message has: by address, as tree events have them.
function listedNodes(message) {
    const nodes = new Map();
    for (const command of message.decoded?.commands ?? [])
        for (const item of command.name === "Results" ? command.items ?? [] : []) {
            const node = {uri: item.source, format: item.meta?.format ?? "chr"};
            if (node.format !== "node" && item.data !== undefined)
                node.value = item.data;
            if (item.encoding)
                node.encoding = item.encoding;
            nodes.set(node.uri, node);
        }
    return nodes;
}

const isOwn = ({decoded}) => [decoded?.header?.source, decoded?.header?.target].includes(OWN_QUESTION);
const same = (one, other) => one.value === other.value && one.format === other.format;

function treeEvent(before, after, owner) {
    return {
        event: "tree", ...owner,
        appeared: [...after.values()].filter((node) => !before.has(node.uri)),
        changed: [...after.values()].filter((node) => before.has(node.uri) && !same(before.get(node.uri), node)),
        went: [...before.keys()].filter((uri) => !after.has(uri)),
    };
}

/// The events of a mount without those of the page's own questions, and with what these have shown:
/// the tree, after the mount and after whatever was done before the next one.
/// @param earlier  the tree that the mount before has left, as listedNodes has it
/// @return the events, and the tree that this one has left
export function seenEvents(events, earlier) {
    const own = new Set();
    const seen = [];
    let tree = earlier;
    let lastCommand = null;
    if (earlier.size > 0)
        seen.push({t: 0, ...treeEvent(new Map(), earlier, {earlier: true})});
    for (const event of events)
        if (event.event === "message" && isOwn(event))
            own.add(event.message);
    for (const event of events)
        if (event.event === "command" && own.has(event.message))
            own.add(`command ${event.command}`);
    for (const event of events) {
        if (own.has(event.message) && event.event === "message") {
            const nodes = listedNodes(event);
            if (event.direction === "sent" && nodes.size > 0) {
                seen.push({t: event.t, ...treeEvent(tree, nodes, lastCommand ? {command: lastCommand} : {mount: 1})});
                tree = nodes;
            }
        } else if (event.event === "tree" && !event.next) {
            continue; // the page has looked itself
        } else if (event.event === "mount" && own.has(`command ${event.command}`)) {
            seen.push({...event, command: null}); // it would have come with the next command
        } else if (event.event === "run") {
            seen.push({...event, arguments: ["explore", event.state], isLive: true});
        } else {
            if (event.event === "command" && CHANGES.has(event.name))
                lastCommand = event.command;
            seen.push(event);
        }
    }
    return {seen: seen.filter((event) => !own.has(`command ${event.command}`)), tree};
}

class Live {
    constructor() {
        this.page = new Page([recordOf([])], "Mount");
        this.handset = new Handset((what, event) => this.hear(what, event));
        this.work = new WorkPane(document.getElementById("work"), this.handset, this.page);
        this.page.onNode = (uri) => {
            this.work.address.value = uri;
            this.look();
        };
        this.page.onRecord = (index) => this.page.tree.showUndone(this.page.records[index - 1], index - 1);
        this.waits = null;
        this.needsTree = false;
        document.getElementById("tab-work").hidden = false;
        this.page.openPane("work");
        this.handset.listen();
    }

    hear(what, event) {
        if (what === "mount")
            this.needsTree = true;
        if (what === "print")
            this.work.takeLine(event);
        if (what === "record" && event.event === "command" && CHANGES.has(event.name) && event.status < 400)
            this.needsTree = true;
        this.waits ??= setTimeout(() => {
            this.waits = null;
            this.show();
        }, PAUSE);
    }

    /// Has the handset say what is stored for the chosen node now.
    look() {
        const {uri} = this.page.tree;
        if (uri !== null && isStored(uri))
            this.work.ask(() => this.handset.lookAt(uri));
    }

    show() {
        let tree = new Map();
        const records = this.handset.mounts.map((events) => {
            const shown = seenEvents(events, tree);
            tree = shown.tree;
            return recordOf(shown.seen);
        });
        this.page.follow(records);
        this.work.showAddresses(this.page.addresses());
        this.work.showHandset();
        this.work.showPrinted(this.handset.printed.filter((line) => !OWN_LINES.some((own) => line.startsWith(own))));
        if (this.needsTree) {
            this.needsTree = false;
            this.work.ask(() => this.handset.run(SHOWN.map(listing), OWN_QUESTION));
            this.look();
        }
    }
}

new Live();
document.documentElement.dataset.ready = "true";

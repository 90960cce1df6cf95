// The tree of the handset at any moment of the run, and the history of each of its nodes.

import {asText, button, foreign, foreignBlock, make, moment, shortAddress} from "./dom.js";
import {revealMarks} from "./record_map.js";
import {isStored} from "./stored_states.js";
import {storedRecord, wholeFiles} from "./stored_view.js";
import {TreeStates, changesBetween, treeLines} from "./tree_states.js";
import {VirtualList} from "./virtual_list.js";

const SIGNS = {appeared: ["+", "appeared"], changed: ["≠", "changed"], went: ["−", "went"]};

export class TreePane {
    constructor(host, page) {
        this.page = page;
        this.closed = new Set();
        this.slider = make("input", {type: "range", min: 0, max: 0, step: 1, "aria-label": "Moment of the run",
                                     on: {input: () => this.go(Number(this.slider.value))}});
        this.since = make("select", {"aria-label": "Marked is what changed", on: {change: () => this.draw()}},
            make("option", {value: "step"}, "in this step"), make("option", {value: "start"}, "since before"));
        this.caption = make("p", {class: "caption", "aria-live": "polite"});
        this.buttons = {
            before: button("Before", () => this.go(this.states.before)),
            after: button("After", () => this.go(this.states.after)),
            next: button("Next mount", () => this.go(this.states.count - 1)),
        };
        this.history = make("section", {class: "history", "aria-label": "History of the node"});
        this.stored = make("section", {class: "stored", "aria-label": "What is stored for the node"});
        this.aboutNode = make("div", {class: "about-node"}, this.history, this.stored);
        this.undone = make("ul", {class: "undone", hidden: true, "aria-label": "What the mount has undone"});
        const tree = make("div", {class: "list tree"});
        host.append(make("div", {class: "moments"}, Object.values(this.buttons), this.slider,
                         make("label", {}, "marked: ", this.since)),
                    this.caption, this.undone, tree, this.aboutNode);
        this.list = new VirtualList(tree, {
            role: "tree", label: "Management tree", heightOf: () => 26,
            render: (line, row) => this.renderLine(line, row),
            attributesOf: (line) => ({
                class: `row ${this.changes.get(line.uri) ?? ""}`, "data-uri": line.uri, "aria-level": line.depth + 1,
                "aria-expanded": line.hasChildren ? String(!this.closed.has(line.uri)) : null,
            }),
            onChoose: (line) => {
                this.aboutNode.scrollTop = 0;
                this.showHistory(line.uri);
                this.showStored();
                this.page.onNode(line.uri);
            },
            onKey: (event, line) => this.key(event, line),
        });
    }

    /// @param isFollowing  the record is the one that was shown, which has grown
    show(record, isFollowing = false) {
        this.record = record;
        this.states = new TreeStates(record);
        if (!isFollowing)
            this.forgetNode();
        else if (this.uri !== null)
            this.showHistory(this.uri);
        this.slider.max = this.states.count - 1;
        this.buttons.next.hidden = !this.states.hasNext;
        this.go(this.states.after, false);
    }

    /// Says which commands of an earlier record are other than before since the mount.
    /// @param index  of that record
    showUndone(earlier, index) {
        const commands = [...earlier?.commands.values() ?? []].filter((command) => command.notes.some(isOfNextMount));
        this.undone.hidden = commands.length === 0;
        this.undone.replaceChildren(...commands.map((command) => make("li", {},
            button([`${asText(command.name)} `, foreign(shortAddress(command.target), 100)],
                   () => this.page.choose({kind: "command", id: command.command}, index)),
            command.notes.filter(isOfNextMount).map((note) => make("span", {class: "note-text"}, " ≠ ", foreign(note.note, 300))))));
    }

    forgetNode() {
        this.closed.clear();
        this.history.replaceChildren();
        this.stored.replaceChildren();
        this.uri = null;
    }

    /// Where no node is chosen, the first one that changed is what a reader looks for.
    reveal() {
        this.list.reveal();
        const changed = this.lines.findIndex((line) => this.changes.has(line.uri));
        if (this.uri === null && changed >= 0)
            this.list.bringIntoSight(changed);
    }

    /// The state that a command or a mount has left.
    goAfter(owner) { this.go(this.states.leftBy(owner)); }

    go(index, isChosen = true) {
        this.index = Math.min(Math.max(Number(index) || 0, 0), this.states.count - 1);
        this.slider.value = this.index;
        this.draw();
        if (isChosen)
            this.page.treeMoved(this.index);
    }

    draw() {
        const state = this.states.at(this.index);
        const from = this.since.value === "start" ? Math.min(this.states.before, this.index) : Math.max(0, this.index - 1);
        const earlier = this.states.at(from);
        this.changes = changesBetween(earlier, state);
        const shown = new Map(state);
        for (const [uri, node] of earlier)
            if (!shown.has(uri))
                shown.set(uri, node);
        this.lines = treeLines(shown, (uri) => this.closed.has(uri));
        if (this.states.count === 1) {
            this.caption.textContent = "This record says nothing of the tree.";
            this.lines = [];
            this.list.setItems([]);
            return;
        }
        const label = this.momentLabel();
        const counts = Object.keys(SIGNS).map((what) => [what, [...this.changes.values()].filter((change) => change === what).length])
            .filter(([, amount]) => amount > 0).map(([what, amount]) => `${SIGNS[what][0]} ${amount} ${SIGNS[what][1]}`);
        this.caption.replaceChildren(`${this.index} of ${this.states.count - 1}: `, label,
                                     counts.length > 0 ? ` · ${counts.join(", ")}` : " · nothing changed");
        this.slider.setAttribute("aria-valuetext", label.textContent);
        this.list.setItems(this.lines);
        this.list.choose(this.lines.findIndex((line) => line.uri === this.uri));
        this.reveal();
        this.showStored();
    }

    momentLabel() {
        return make("span", {}, describeCause(this.states.causeOf(this.index), this.record));
    }

    renderLine(line, row) {
        const change = this.changes.get(line.uri);
        row.style.paddingInlineStart = `${0.3 + Math.min(line.depth, 24) * 1.2}rem`;
        const twig = make("span", {class: "twig", "aria-hidden": "true"}, line.hasChildren ? (this.closed.has(line.uri) ? "▸" : "▾") : "");
        if (line.hasChildren)
            twig.addEventListener("click", () => this.toggle(line));
        const {value, format, status} = line.node;
        row.append(twig, make("span", {class: "sign", title: change ? SIGNS[change][1] : null}, change ? SIGNS[change][0] : ""),
                   foreign(line.name, 100, {class: "name"}), " ",
                   format && format !== "node" ? make("span", {class: "format"}, asText(format)) : "", " ",
                   status ? make("span", {class: "tag fault"}, asText(status)) : value === null ? "" : value === "" ? make("span", {class: "format"}, "(empty)") : foreign(value, 120, {class: "data"}));
    }

    toggle(line) {
        if (!this.closed.delete(line.uri))
            this.closed.add(line.uri);
        this.uri = line.uri;
        this.draw();
    }

    key(event, line) {
        if (!line)
            return false;
        const isOpen = line.hasChildren && !this.closed.has(line.uri);
        if ((event.key === "ArrowLeft" && isOpen) || (event.key === "ArrowRight" && line.hasChildren && !isOpen)) {
            this.toggle(line);
            return true;
        }
        const parent = this.lines.findIndex((other) => other.uri === line.uri.slice(0, line.uri.lastIndexOf("/")));
        if (event.key === "ArrowLeft" && parent >= 0)
            this.list.move(parent);
        return event.key === "ArrowLeft" || event.key === "ArrowRight";
    }

    showHistory(uri) {
        this.uri = uri;
        const commands = [...this.record.commands.values()].filter((command) => nodeAddress(command.target) === uri);
        const events = [
            ...commands.map((command) => ({t: command.t ?? Infinity, command})),
            ...this.states.historyOf(uri).map((entry) => ({t: entry.event.next ? Infinity : this.states.timeOf(entry.event), entry})),
        ].sort((one, other) => one.t - other.t);
        this.history.replaceChildren(
            make("h3", {}, "History of ", foreign(uri, 300)),
            events.length === 0 ? make("p", {class: "hint"}, "Nothing was asked of it, and it never changed.")
                                : make("ol", {}, events.map((event) => make("li", {}, event.command ? this.commandEntry(event.command)
                                                                                                  : this.stateEntry(event.entry)))));
    }

    /// The record and the mapping files behind the node, as they were at the moment that is shown.
    showStored() {
        if (this.uri === null || !isStored(this.uri)) {
            this.stored.replaceChildren();
            return;
        }
        const isNow = this.index >= this.states.after;
        const {stored} = this.page;
        const state = isNow ? stored.atTime(Infinity) : stored.atTime(this.states.timeOf(this.states.causeOf(this.index) ?? {t: 0}));
        const reason = isNow ? stored.reasonFor(this.uri) : "";
        const open = new Set([...this.stored.querySelectorAll("details")].flatMap((one, index) => one.open ? [index] : []));
        this.stored.replaceChildren(make("h3", {}, "Its profile's record"), ...[storedRecord(state, this.uri, reason, this.aboutNode)].flat(),
                                    make("h3", {}, "Mapping files"), ...wholeFiles(state));
        [...this.stored.querySelectorAll("details")].forEach((one, index) => { one.open = open.has(index); });
        revealMarks(this.stored);
    }

    commandEntry(command) {
        return [make("span", {class: "time"}, moment(command.began ?? command.t)), " ",
                button(`${asText(command.name)} ${asText(command.command)}`, () => this.page.choose({kind: "command", id: command.command})),
                ` ${asText(command.status)} `, foreign(command.meaning, 40), command.reason ? [": ", foreign(command.reason, 200)] : "",
                command.notes.map((note) => [" ≠ ", foreign(note.note, 200)])];
    }

    stateEntry({index, event, what, value}) {
        return [make("span", {class: "time"}, moment(this.states.timeOf(event))), " ",
                button(`${SIGNS[what][0]} ${SIGNS[what][1]}`, () => this.go(index)),
                " ", describeCause(event, this.record), value === null ? "" : [": ", foreignBlock(value)]];
    }
}

const isOfNextMount = (note) => note.when === "next mount";

/// An address as the tree has it: from the root, without a property or a slash at its end.
function nodeAddress(target) {
    const address = asText(target).split("?")[0].replace(/\/$/, "");
    return address === "." || address.startsWith("./") ? address : "./" + address;
}

function describeCause(event, record) {
    if (!event)
        return ["before everything"];
    if (event.next)
        return ["what the next mount will show"];
    if (event.earlier)
        return ["as it was before this mount"];
    if (event.mount)
        return ["after the mount of ", foreign(record.mounts.get(event.mount)?.root, 100)];
    const command = record.commands.get(event.command);
    return [`after command ${asText(event.command)}: ${asText(command?.name)} `, foreign(shortAddress(command?.target), 100)];
}

// The page: one record or two, the panes that look at them, and what is chosen in all of them.
//
// What is chosen stands in the address, as #command=7, so that a link leads to it.

import {asList, asText, button, count, duration, foreign, make} from "./dom.js";
import {BehindPane} from "./behind_pane.js";
import {ComparisonPane} from "./comparison_pane.js";
import {MessagePane} from "./message_pane.js";
import {isDifferent, isRefused, runTitle} from "./record.js";
import {StoredStates} from "./stored_states.js";
import {Timeline} from "./timeline.js";
import {TreePane} from "./tree_pane.js";

const KINDS = ["command", "message", "mount", "exchange"];
const PANES = ["work", "behind", "message", "tree", "compare"];
const byId = (id) => document.getElementById(id);

export class Page {
    /// @param recordName  what one of several records is called
    constructor(records, recordName = "Record") {
        this.records = records;
        this.recordName = recordName;
        this.onNode = () => {}; // is told the address of a node that was chosen in the tree
        this.onRecord = () => {}; // is told the index of a record that is shown
        this.timeline = new Timeline(byId("timeline"), this);
        this.behind = new BehindPane(byId("behind"), this);
        this.message = new MessagePane(byId("message"), this);
        this.tree = new TreePane(byId("tree"), this);
        this.comparison = new ComparisonPane(byId("compare"), this);
        this.panes = {behind: this.behind, message: this.message, tree: this.tree, compare: this.comparison};
        byId("tab-compare").hidden = records.length < 2;
        this.connectTabs();
        this.connectFilters();
        this.connectDialogs();
        document.addEventListener("keydown", (event) => this.key(event));
        window.addEventListener("hashchange", () => this.readAddress());
        if (records.length > 1)
            this.comparison.show(records);
        this.showRecordButtons();
        this.readAddress();
    }

    // ---- What is shown -----------------------------------------------------------------------

    readAddress() {
        const words = new URLSearchParams(location.hash.slice(1));
        this.showRecord(Math.min(Math.max((Number(words.get("record")) || 1) - 1, 0), this.records.length - 1), false);
        const kind = KINDS.find((name) => words.has(name));
        const choice = kind ? {kind, id: Number(words.get(kind))} : null;
        const found = choice && this.find(choice) ? choice : this.worthLooking();
        this.take(found);
        const pane = words.get("pane");
        this.openPane(PANES.includes(pane) && !byId(`tab-${pane}`).hidden ? pane
                    : !choice && this.records.length > 1 ? "compare" : paneOf(found));
        if (words.has("moment"))
            this.tree.go(words.get("moment"), false);
    }

    writeAddress() {
        const words = new URLSearchParams();
        if (this.records.length > 1)
            words.set("record", this.recordIndex + 1);
        if (this.choice)
            words.set(this.choice.kind, this.choice.id);
        if (this.pane !== paneOf(this.choice))
            words.set("pane", this.pane);
        if (this.pane === "tree")
            words.set("moment", this.tree.index);
        history.replaceState(null, "", "#" + words);
    }

    get record() { return this.records[this.recordIndex]; }

    showRecordButtons() {
        if (this.records.length > 1 && byId("records").children.length !== this.records.length)
            byId("records").replaceChildren(...this.records.map((record, index) =>
                button(`${this.recordName} ${index + 1}`, () => this.showRecord(index), {id: `record-${index}`})));
    }

    showRecord(index, isByHand = true, isFollowing = false) {
        if (this.recordIndex === index)
            return;
        this.recordIndex = index;
        this.stored = new StoredStates(this.record.storage);
        document.title = `${runTitle(this.record)} – what the handset did`;
        this.fillHead();
        this.timeline.show(this.record);
        this.tree.show(this.record, isFollowing);
        this.onRecord(index);
        for (const one of byId("records").children)
            one.setAttribute("aria-pressed", String(one.id === `record-${index}`));
        this.showFilterResult(this.timeline.filter());
        if (isByHand)
            this.choose(this.worthLooking());
    }

    /// Shows what records have become since; the last one when there are more of them. The newest
    /// command is chosen for as long as it is the newest that was.
    follow(records) {
        const isAtEnd = !this.choice || this.choice.id === lastCommand(this.record)?.command;
        const isNew = records.length !== this.records.length;
        this.records = records;
        this.showRecordButtons();
        const choice = this.choice;
        const index = isNew ? records.length - 1 : this.recordIndex;
        this.recordIndex = null;
        this.showRecord(index, false, !isNew);
        const last = lastCommand(this.record);
        this.take(isAtEnd || isNew ? last && {kind: "command", id: last.command} : choice);
        if (isAtEnd || isNew)
            this.tree.go(this.tree.states.after, false);
    }

    /// Addresses of the nodes that there are.
    addresses() {
        const {states} = this.tree;
        return [...states.at(states.after).keys()];
    }

    /// What a reader probably looks for: the first command that was refused, else one that reads
    /// back differently, else the first one.
    worthLooking() {
        const commands = [...this.record.commands.values()];
        const command = commands.find(isRefused) ?? commands.find(isDifferent) ?? commands[0];
        return command ? {kind: "command", id: command.command} : null;
    }

    find({kind, id}) {
        return this.record[{command: "commands", message: "messages", mount: "mounts", exchange: "exchanges"}[kind]].get(id);
    }

    /// Chooses something in all panes. @param index  of the record that has it
    choose(choice, index = this.recordIndex) {
        if (index !== this.recordIndex)
            this.showRecord(index, false);
        this.take(choice);
        const keepsTree = this.pane === "tree" && (choice?.kind === "command" || choice?.kind === "mount");
        this.openPane(keepsTree ? "tree" : paneOf(choice));
        this.writeAddress();
    }

    take(choice) {
        this.choice = choice;
        this.timeline.choose(choice);
        const chosen = choice ? this.find(choice) : null;
        this.behind.show(choice?.kind === "command" || choice?.kind === "mount" ? chosen : null);
        const message = choice?.kind === "message" ? chosen : this.record.messages.get(chosen?.message);
        const exchange = choice?.kind === "exchange" ? chosen : this.record.exchanges.get(message?.exchange);
        this.message.show(message ?? null, exchange, choice?.kind === "command" ? chosen : null);
        if (choice?.kind === "command" || choice?.kind === "mount")
            this.tree.go(this.tree.states.leftBy(chosen), false);
    }

    showTreeAfter(owner) {
        this.openPane("tree");
        this.tree.goAfter(owner);
    }

    treeMoved() { this.writeAddress(); }

    announce(text) { byId("announcement").textContent = text; }

    // ---- The head ----------------------------------------------------------------------------

    fillHead() {
        const {run, end, brokenLines, commands} = this.record;
        const all = [...commands.values()];
        byId("title").replaceChildren(foreign(runTitle(this.record), 120, {title: asList(run.arguments).map(asText).join(" ").slice(0, 2000)}));
        const facts = [
            asText(run.time).replace("T", " ").replace("Z", " UTC"), `dmclient ${asText(run.version)}`, asText(run.backend),
            count(all.length, "command"), end ? duration(end.t) : null,
        ].filter((fact) => fact && fact.trim() !== "");
        const isCutShort = !end && !run.isLive;
        const outcome = end ? (end.kind ? `session ${asText(end.kind)}` : `exit status ${asText(end.status)}`)
                      : isCutShort ? "the record has no end: the program was killed, or is still running" : "live";
        byId("facts").replaceChildren(make("b", {class: isCutShort || (end?.kind && end.kind !== "completed") ? "problem" : ""}, outcome),
                                      " · " + facts.join(" · "),
                                      run.showsSecrets ? " · shows secrets" : "",
                                      brokenLines > 0 ? ` · ${count(brokenLines, "line")} could not be read` : "");
        byId("filter-refused").textContent = `✕ Refused (${all.filter(isRefused).length})`;
        byId("filter-different").textContent = `≠ Reads back differently (${all.filter(isDifferent).length})`;
    }

    // ---- Filters -----------------------------------------------------------------------------

    connectFilters() {
        for (const name of ["refused", "different"])
            byId(`filter-${name}`).addEventListener("click", () => this.toggleFilter(name));
        byId("search").addEventListener("input", () => {
            this.timeline.filters.words = byId("search").value.trim();
            this.refilter();
        });
    }

    toggleFilter(name) {
        const {filters} = this.timeline;
        filters[name] = !filters[name];
        byId(`filter-${name}`).setAttribute("aria-pressed", String(filters[name]));
        this.refilter();
    }

    refilter() {
        this.showFilterResult(this.timeline.filter());
        this.timeline.choose(this.choice);
    }

    showFilterResult({shown, isFiltered}) {
        byId("filter-result").textContent = isFiltered ? `${count(shown, "command")} shown of ${this.record.commands.size}` : "";
    }

    // ---- Panes -------------------------------------------------------------------------------

    connectTabs() {
        for (const pane of PANES)
            byId(`tab-${pane}`).addEventListener("click", () => {
                this.openPane(pane);
                this.writeAddress();
            });
        byId("tabs").addEventListener("keydown", (event) => {
            const step = {ArrowLeft: -1, ArrowRight: 1}[event.key];
            if (!step)
                return;
            const open = PANES.filter((pane) => !byId(`tab-${pane}`).hidden);
            this.openPane(open[(open.indexOf(this.pane) + step + open.length) % open.length]);
            byId(`tab-${this.pane}`).focus();
            this.writeAddress();
        });
    }

    openPane(pane) {
        this.pane = pane;
        for (const name of PANES) {
            const isOpen = name === pane;
            byId(name).hidden = !isOpen;
            byId(`tab-${name}`).setAttribute("aria-selected", String(isOpen));
            byId(`tab-${name}`).tabIndex = isOpen ? 0 : -1;
        }
        this.panes[pane]?.reveal(); // a pane of forms draws nothing
    }

    // ---- Keys and dialogs --------------------------------------------------------------------

    connectDialogs() {
        byId("show-help").addEventListener("click", () => byId("help").showModal());
        for (const closer of document.querySelectorAll("dialog .close"))
            closer.addEventListener("click", () => closer.closest("dialog").close());
        byId("copy-offer").addEventListener("click", () => {
            byId("offer-text").select();
            document.execCommand("copy");
            this.announce("copied");
        });
    }

    /// Shows a text that a person takes away.
    offerText(title, text) {
        byId("offer-title").textContent = title;
        byId("offer-text").value = text;
        byId("offer").showModal();
        byId("offer-text").select();
    }

    key(event) {
        if (event.altKey || event.ctrlKey || event.metaKey || document.querySelector("dialog[open]") ||
            ["INPUT", "TEXTAREA", "SELECT"].includes(event.target.tagName)) {
            if (event.key === "Escape" && event.target.id === "search")
                byId("timeline").focus();
            return;
        }
        const actions = {
            "?": () => byId("help").showModal(), "/": () => byId("search").focus(), "1": () => byId("timeline").focus(),
            "2": () => this.focusPane("behind"), "3": () => this.focusPane("message"), "4": () => this.focusPane("tree"),
            "5": () => this.records.length > 1 && this.focusPane("compare"), "n": () => this.timeline.step(1),
            "p": () => this.timeline.step(-1), "r": () => this.toggleFilter("refused"), "d": () => this.toggleFilter("different"),
        };
        if (!Object.hasOwn(actions, event.key))
            return;
        event.preventDefault();
        actions[event.key]();
    }

    focusPane(pane) {
        this.openPane(pane);
        this.writeAddress();
        (byId(pane).querySelector(".list") ?? byId(pane)).focus();
    }
}

function lastCommand(record) {
    return record.commands.size > 0 ? [...record.commands.values()].at(-1) : null;
}

function paneOf(choice) {
    return choice?.kind === "message" || choice?.kind === "exchange" ? "message" : "behind";
}

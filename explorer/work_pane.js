// What a person asks of the handset: single commands, an Atomic of several, packages, sessions; and
// what is done with the handset itself.

import {renaming} from "./dm_package.js";
import {button, make} from "./dom.js";

const FORMATS = ["chr", "int", "bool", "bin", "node"];
const LINES_SHOWN = 300;

/// What can be done with an address: the command that it becomes.
const OPERATIONS = [
    ["Get", ({target}) => ({name: "Get", target})],
    ["Replace", ({target, value}) => ({name: "Replace", target, value})],
    ["Add", ({target, value, format}) => ({name: "Add", target, format, ...(format === "node" ? {} : {value})})],
    ["Rename", ({target, value}) => renaming(target, value)],
    ["Delete", ({target}) => ({name: "Delete", target})],
    ["Copy", ({target, value}) => ({name: "Copy", target, source: value})],
    ["Exec", ({target}) => ({name: "Exec", target})],
];

function field(label, input) {
    return make("label", {class: "field"}, label, input);
}

export class WorkPane {
    /// @param page  offers a text to take away, and announces
    constructor(element, handset, page) {
        this.handset = handset;
        this.page = page;
        this.atomic = [];
        this.complaint = "";
        this.address = make("input", {type: "text", id: "work-address", value: "./DevDetail/Ext/Conf/Conn/Profiles",
                                      list: "work-addresses", spellcheck: "false", autocomplete: "off"});
        this.addresses = make("datalist", {id: "work-addresses"});
        this.value = make("input", {type: "text", id: "work-value", spellcheck: "false", autocomplete: "off"});
        this.format = make("select", {id: "work-format"}, FORMATS.map((format) => make("option", {}, format)));
        this.collects = make("input", {type: "checkbox", id: "work-collects", on: {change: () => this.showAtomic()}});
        this.collected = make("div", {id: "work-atomic", role: "group", "aria-label": "Atomic"});
        this.problem = make("p", {id: "work-problem", class: "problem", role: "alert"});
        this.snapshots = make("span", {id: "work-snapshots", role: "group", "aria-label": "Snapshots"});
        this.secrets = make("input", {type: "checkbox", id: "work-secrets"});
        this.console = make("pre", {id: "work-console", tabindex: "0", "aria-label": "What the shell has printed"});
        this.xml = make("textarea", {id: "work-package", rows: "6", spellcheck: "false"});
        this.server = make("input", {type: "text", id: "work-server", spellcheck: "false", autocomplete: "off"});
        element.replaceChildren(
            this.problem,
            make("h2", {}, "A command"),
            field("Address", this.address), this.addresses,
            make("div", {class: "fields"}, field("Value, new name, or source of a Copy", this.value), field("Format of an Add", this.format)),
            make("div", {class: "buttons"}, OPERATIONS.map(([name, command]) =>
                button(name, () => this.runCommand(command), {id: `work-${name.toLowerCase()}`}))),
            make("label", {}, this.collects, " collect the commands in an Atomic"), this.collected,
            make("h2", {}, "A session"),
            make("div", {class: "fields"}, field("Account or URL", this.server),
                 button("Hold a session", () => this.holdSession(), {id: "work-session"})),
            make("h2", {}, "A package"),
            field("XML", this.xml),
            make("div", {class: "buttons"}, button("Run the package", () => this.runPackage(), {id: "work-run"})),
            make("h2", {}, "The handset"),
            make("div", {class: "buttons"},
                 button("Mount again", () => this.mountWith(() => this.handset.mountAgain(this.secrets.checked)), {id: "work-mount"}),
                 button("Take a snapshot", () => this.takeSnapshot(), {id: "work-snapshot"}),
                 this.snapshots,
                 button("Save as a scenario", () => this.saveScenario(), {id: "work-scenario"})),
            make("label", {}, this.secrets, " show secrets from the next mount on"),
            make("h2", {}, "What the shell has printed"),
            this.console);
        this.showAtomic();
    }

    // ---- What is asked -----------------------------------------------------------------------

    /// Runs something that may fail, and says why it did.
    attempt(action) {
        this.complain("");
        return this.ask(action);
    }

    /// The same of what the page does by itself: it takes away nothing that was said before.
    async ask(action) {
        try {
            return await action();
        } catch (error) {
            this.complain(error.message);
            return null;
        }
    }

    /// Says what is wrong with what was asked last; nothing with an empty text.
    complain(text) {
        this.complaint = text;
        this.showProblem();
    }

    showProblem() {
        this.problem.textContent = this.handset.failure ?? this.complaint;
    }

    /// A line of the shell that says why something could not be done. The page's own files are the person's
    /// package.
    takeLine(line) {
        if (/^(process|session|stored|dmclient): |^Session (failed|aborted)/.test(line))
            this.complain(line.replace(/^process: \S*package-\d+\.xml: /, "the package: "));
    }

    holdSession() {
        if (this.server.value.trim() === "")
            this.complain("give the name of an account, or the URL of a server");
        else
            this.attempt(() => this.handset.haveSession(this.server.value.trim()));
    }

    runPackage() {
        if (this.xml.value.trim() === "")
            this.complain("there is no package yet: put the XML of one above the button");
        else
            this.attempt(() => this.handset.runPackage(this.xml.value));
    }

    /// Does what ends in another mount, and leads to the tree that it shows.
    async mountWith(action) {
        const mounts = this.handset.mounts.length;
        if (await this.attempt(action) && this.handset.mounts.length > mounts)
            this.page.focusPane("tree");
    }

    async takeSnapshot() {
        const taken = await this.attempt(() => this.handset.takeSnapshot());
        if (taken)
            this.page.announce(`snapshot ${taken.snapshot} was taken`);
    }

    runCommand(makeCommand) {
        if (this.address.value.trim() === "") {
            this.complain("give the address of a node");
            return null;
        }
        const command = makeCommand({target: this.address.value, value: this.value.value, format: this.format.value});
        if (!this.collects.checked)
            return this.attempt(() => this.handset.run([command]));
        this.atomic.push(command);
        this.showAtomic();
        return null;
    }

    runAtomic() {
        const commands = this.atomic;
        this.atomic = [];
        this.showAtomic();
        return this.attempt(() => this.handset.run([{name: "Atomic", commands}]));
    }

    showAtomic() {
        const lines = this.atomic.map((command) =>
            make("li", {}, `${command.name} ${command.target}${command.value === undefined ? "" : ` = ${command.value}`}`));
        this.collected.replaceChildren(
            make("ol", {}, lines),
            ...(this.atomic.length > 0
                ? [button("Run the Atomic", () => this.runAtomic(), {id: "work-run-atomic"}),
                   button("Discard it", () => { this.atomic = []; this.showAtomic(); }, {id: "work-discard"})] : []));
        this.collected.hidden = !this.collects.checked && this.atomic.length === 0;
    }

    /// What was done since the mount that is shown, as a scenario in which the handset has to answer the
    /// same again. One mount, since a scenario is played on one: what a mount undoes is not undone there.
    saveScenario() {
        const {record} = this.page;
        const packages = [...record.messages.values()].filter((message) => message.direction === "received")
            .map((message) => ({commands: scenarioOf(message, statusesOf(record, message))}))
            .filter((one) => one.commands.length > 0);
        if (packages.length === 0) {
            const isOther = this.page.records.length > 1 ? "; choose another mount above" : "";
            this.complain(`nothing was done since this mount that a scenario could have${isOther}`);
            return;
        }
        this.complain("");
        const scenario = {description: "What was done on the page of dmclient explore", packages};
        this.page.offerText("What was done since this mount, as a scenario for tests/dmserver", JSON.stringify(scenario, null, 2) + "\n");
    }

    // ---- What is shown -----------------------------------------------------------------------

    /// @param uris  addresses of the nodes that there are
    showAddresses(uris) {
        this.addresses.replaceChildren(...uris.map((uri) => make("option", {value: uri})));
    }

    showHandset() {
        this.snapshots.replaceChildren(...Array.from({length: this.handset.snapshots}, (_, number) =>
            button(number === 0 ? "Back to the beginning" : `Back to snapshot ${number}`,
                   () => this.mountWith(() => this.handset.goBackTo(number)), {id: `work-back-${number}`})));
        this.showProblem();
    }

    showPrinted(lines) {
        const isAtEnd = this.console.scrollTop + this.console.clientHeight >= this.console.scrollHeight - 4;
        this.console.textContent = lines.slice(-LINES_SHOWN).join("\n");
        if (isAtEnd)
            this.console.scrollTop = this.console.scrollHeight;
    }
}

/// The statuses of a message's commands by their CmdIDs.
function statusesOf(record, message) {
    const statuses = new Map();
    for (const command of message.commands)
        statuses.set(command.cmdId, [...(statuses.get(command.cmdId) ?? []), command.status]);
    return statuses;
}

const SCENARIO_NAMES = {Get: "get", Add: "add", Replace: "replace", Delete: "delete", Copy: "copy", Exec: "exec"};

/// The commands of a message as a scenario has them, one for each item. What a scenario has no word
/// for, such as values that are masked, is left to the person who takes it away.
function scenarioOf(message, statuses) {
    return (message.decoded?.commands ?? []).flatMap((command) => scenarioCommands(command, statuses));
}

function scenarioCommands(command, statuses) {
    if (command.name === "Atomic" || command.name === "Sequence")
        return [{[command.name.toLowerCase()]: (command.commands ?? []).flatMap((inner) => scenarioCommands(inner, statuses)),
                 ...expected(statuses.get(command.cmdId)?.[0])}];
    if (!Object.hasOwn(SCENARIO_NAMES, command.name))
        return [];
    return (command.items ?? []).map((item, index) => {
        const status = expected(statuses.get(command.cmdId)?.[index]);
        const name = SCENARIO_NAMES[command.name];
        if (name === "copy")
            return {copy: item.source, to: item.target, ...status};
        if (name === "replace" && item.target?.endsWith("?prop=Name"))
            return {rename: item.target.slice(0, -"?prop=Name".length), name: item.data, ...status};
        const format = item.meta?.format ?? command.meta?.format;
        return {[name]: item.target, ...(format ? {format} : {}),
                ...(item.data === undefined || item.data === null ? {} : {data: item.data}), ...status};
    });
}

const expected = (status) => status && status !== 200 ? {expect: status} : {};

// Two records side by side.

import {asText, button, count, foreign, make, moment, shortAddress} from "./dom.js";
import {COMPARED, compared, pairCommands, treeDifferences} from "./comparison.js";
import {runTitle} from "./record.js";
import {VirtualList} from "./virtual_list.js";

export class ComparisonPane {
    constructor(host, page) {
        this.page = page;
        this.all = make("input", {type: "checkbox", on: {change: () => this.fill()}});
        this.caption = make("p", {class: "caption", "aria-live": "polite"});
        this.heads = make("div", {class: "heads"});
        this.detail = make("section", {class: "pair", "aria-label": "The chosen pair"});
        const list = make("div", {class: "list comparison"});
        host.append(make("p", {class: "actions"}, make("label", {}, this.all, " what is the same, too")),
                    this.caption, this.heads, list, this.detail);
        this.list = new VirtualList(list, {
            label: "Commands of both records", heightOf: () => 48,
            render: (row, element) => renderPair(row, element),
            onChoose: (row) => this.detail.replaceChildren(...this.pairDetail(row)),
        });
    }

    show(records) {
        this.records = records;
        this.pairs = pairCommands(...records);
        this.nodes = treeDifferences(...records).map((node) => ({...node, isNode: true}));
        this.heads.replaceChildren(make("span", {}), ...records.map((record, index) =>
            make("span", {}, make("b", {}, `Record ${index + 1}: `), foreign(runTitle(record), 60), " ", asText(record.run.time))));
        this.fill();
    }

    reveal() { this.list.reveal(); }

    fill() {
        const others = this.pairs.filter((pair) => pair.differences.length > 0);
        this.caption.textContent = `${count(others.length, "command")} of ${this.pairs.length} differ; at the end of the trees `
            + `${count(this.nodes.length, "node")} ${this.nodes.length === 1 ? "does" : "do"}.`;
        this.list.setItems([...(this.all.checked ? this.pairs : others), ...this.nodes]);
        this.detail.replaceChildren();
    }

    pairDetail(row) {
        if (row.isNode)
            return [make("h3", {}, "Node ", foreign(row.uri, 300)),
                    make("p", {}, "Record 1: ", foreign(nodeSays(row.first), 4000)),
                    make("p", {}, "Record 2: ", foreign(nodeSays(row.second), 4000))];
        return [make("h3", {}, foreign(row.key, 300)),
            make("table", {},
                make("thead", {}, make("tr", {}, ["", "Record 1", "Record 2"].map((text) => make("th", {scope: "col"}, text)))),
                make("tbody", {}, COMPARED.map((what) => comparisonRow(row, what)))),
            make("p", {class: "actions"}, [row.first, row.second].map((command, index) => command
                ? button(`Open it in record ${index + 1}`, () => this.page.choose({kind: "command", id: command.command}, index)) : null))];
    }
}

function comparisonRow(row, what) {
    const isOther = row.differences.includes(what);
    return make("tr", {class: isOther ? "different" : null}, make("th", {scope: "row"}, isOther ? `≠ ${what}` : what),
                [row.first, row.second].map((command) => make("td", {}, command ? foreign(compared(command, what), 2000) : "—")));
}

function nodeSays(node) {
    return !node ? "is not there" : node.value === null ? "is there" : node.value;
}

function renderPair(row, element) {
    if (row.isNode) {
        element.append(make("span", {class: "what"}, "≠ node ", foreign(shortAddress(row.uri), 100)),
                       side(nodeSays(row.first)), side(nodeSays(row.second)));
        return;
    }
    const command = row.first ?? row.second;
    element.append(
        make("span", {class: "what"}, row.differences.length > 0 ? "≠ " : "= ", make("b", {}, asText(command.name)), " ",
             foreign(shortAddress(command.target), 100, {title: asText(command.target).slice(0, 2000)}),
             make("span", {class: "second"}, row.differences.join(", "))),
        ...[row.first, row.second].map((one) => side(one ? summary(one) : "is not there")));
}

function side(text) {
    return make("span", {class: "side"}, foreign(text, 160));
}

function summary(command) {
    return [compared(command, "status"), compared(command, "value") && `= ${compared(command, "value")}`,
            compared(command, "reason"), compared(command, "note") && `≠ ${compared(command, "note")}`,
            `at ${moment(command.t)} s`].filter(Boolean).join(" · ");
}

// A message: its elements beside its bytes, and the HTTP that carried it.

import {asText, button, bytesOf, count, duration, foreign, foreignBlock, hex, make, number} from "./dom.js";
import {elementAt, elementOfCommand, elementsOf, elementsOfDecoded} from "./message_bytes.js";
import {scenarioCommand} from "./record.js";
import {VirtualList} from "./virtual_list.js";

const BYTES_IN_ROW = 16;

export class MessagePane {
    constructor(host, page) {
        this.page = page;
        this.facts = make("div", {class: "facts"});
        const elements = make("div", {class: "list elements"});
        const bytes = make("div", {class: "list bytes"});
        this.halves = make("div", {class: "halves"},
            make("section", {"aria-label": "Elements"}, make("h3", {}, "Elements"), elements),
            make("section", {"aria-label": "Bytes"}, make("h3", {}, "Bytes"), bytes));
        this.headers = make("div", {class: "headers"});
        host.append(this.facts, this.halves, this.headers);
        this.elementList = new VirtualList(elements, {
            label: "Elements of the message", heightOf: () => 24,
            render: (element, row) => renderElement(element, row),
            onChoose: (element, index) => this.markElement(element, index),
        });
        this.byteList = new VirtualList(bytes, {
            label: "Bytes of the message, sixteen in a row; left and right move by one byte", heightOf: () => 24,
            render: (offset, row) => this.renderBytes(offset, row),
            onChoose: (offset) => this.markByte(offset + this.column),
            onKey: (event, offset) => this.byteKey(event, offset),
        });
        bytes.addEventListener("click", (event) => {
            const cell = event.target.closest("[data-offset]");
            if (cell)
                this.markByte(Number(cell.dataset.offset));
        });
    }

    /// @param message  null of an exchange that led to none
    /// @param command  of the message, whose bytes are marked; null for none
    show(message, exchange, command) {
        this.message = message;
        this.column = 0;
        this.marked = null;
        this.bytes = message?.bytes ? bytesOf(message.bytes) : null;
        this.elements = !message ? [] : this.bytes ? elementsOf(this.bytes) : elementsOfDecoded(message.decoded);
        this.facts.replaceChildren(...this.heading(message));
        this.halves.hidden = !message;
        this.headers.replaceChildren(...exchangeFacts(exchange));
        this.elementList.setItems(this.elements);
        const rows = this.bytes ? Math.ceil(this.bytes.length / BYTES_IN_ROW) : 0;
        this.byteList.setItems(Array.from({length: rows}, (_, index) => index * BYTES_IN_ROW));
        const index = command ? elementOfCommand(this.elements, command.cmdId) : -1;
        if (index >= 0)
            this.markElement(this.elements[index], index);
    }

    reveal() {
        this.elementList.reveal();
        this.byteList.reveal();
    }

    heading(message) {
        if (!message)
            return [make("p", {class: "empty"}, "Choose a message, or a command that came with one.")];
        const name = `message-${asText(message.message)}.${message.encoding === "wbxml" ? "wbxml" : "xml"}`;
        return [
            make("h2", {}, `Message ${asText(message.message)}, ${message.direction === "sent" ? "to the server" : "to the client"}`),
            make("p", {}, [`${number(message.size)} bytes`, asText(message.encoding),
                           message.msgId ? `MsgID ${asText(message.msgId)}` : null,
                           message.hmac ? "with an HMAC" : null].filter(Boolean).join(" · ")),
            message.fault ? make("p", {class: "problem"}, "✕ cannot be read: ", foreign(message.fault)) : null,
            !this.bytes ? make("p", {class: "hint"}, "The bytes of this message are not in the record.") : null,
            make("p", {class: "actions"},
                 this.bytes ? button("Save for dmclient process", () => saveBytes(this.bytes, name)) : null,
                 message.commands.length > 0 ? button("Copy as a package of a scenario",
                     () => this.page.offerText("A package of a scenario", scenarioPackage(message))) : null),
        ].filter(Boolean);
    }

    renderBytes(offset, row) {
        const cells = [];
        let text = "";
        const end = Math.min(offset + BYTES_IN_ROW, this.bytes.length);
        for (let at = offset; at < end; ++at) {
            const byte = this.bytes[at];
            const isMarked = this.marked && this.marked.start <= at && at < this.marked.end;
            cells.push(make("span", {class: isMarked ? "byte marked" : "byte", "data-offset": at}, hex(byte)));
            text += byte >= 0x20 && byte < 0x7f ? String.fromCharCode(byte) : "·";
        }
        row.append(make("span", {class: "offset"}, hex(offset, 6)), make("span", {class: "hex"}, cells),
                   make("span", {class: "ascii", "aria-hidden": "true"}, text));
    }

    markElement(element, index) {
        this.elementList.choose(index);
        this.marked = element.end > element.start ? element : null;
        if (this.bytes && this.marked) {
            this.byteList.choose(Math.floor(element.start / BYTES_IN_ROW));
            this.byteList.redraw();
        }
        this.page.announce(this.marked ? `${element.name}: bytes ${element.start} to ${element.end - 1}` : element.name);
    }

    markByte(offset) {
        this.column = offset % BYTES_IN_ROW;
        const index = elementAt(this.elements, offset);
        this.marked = index < 0 ? {start: offset, end: offset + 1} : this.elements[index];
        this.elementList.choose(index);
        this.byteList.redraw();
        this.page.announce(index < 0 ? `byte ${offset}` : `byte ${offset}: ${this.elements[index].name}`);
    }

    byteKey(event, offset) {
        const step = {ArrowLeft: -1, ArrowRight: 1}[event.key];
        if (!step || offset === undefined)
            return false;
        const target = offset + this.column + step;
        if (target >= 0 && target < this.bytes.length) {
            this.byteList.choose(Math.floor(target / BYTES_IN_ROW));
            this.markByte(target);
        }
        return true;
    }
}

function renderElement(element, row) {
    row.style.paddingInlineStart = `${0.5 + Math.min(element.depth, 24) * 1.1}rem`;
    row.classList.toggle("fault", Boolean(element.fault));
    row.append(make("b", {class: "name"}, foreign(element.name, 80)), " ", foreign(element.text, 300, {class: "data"}));
}

function scenarioPackage(message) {
    const commands = message.commands.map(scenarioCommand).filter(Boolean);
    return JSON.stringify({commands}, null, 1);
}

function saveBytes(bytes, name) {
    const address = URL.createObjectURL(new Blob([bytes]));
    make("a", {href: address, download: name}).click();
    setTimeout(() => URL.revokeObjectURL(address), 1000);
}

// ---- HTTP ----------------------------------------------------------------------------------------

function exchangeFacts(exchange) {
    if (!exchange)
        return [];
    return [make("h3", {}, "HTTP"),
            ...[...exchange.attempts.values()].map((attempt, index, all) => attemptFacts(attempt, all.length > 1, index === all.length - 1 && !exchange.received)),
            ...exchange.waits.map((wait) => make("p", {}, `◷ waited ${duration(wait.us)}: `, foreign(wait.reason)))];
}

function attemptFacts({number: attempt, request, response}, isOneOfMany, isOpen) {
    const tls = response?.tls;
    const result = !response ? "no answer" : response.failure ? ["✕ ", foreign(response.failure)]
                 : `HTTP ${asText(response.status)} · ${number(response.size)} bytes · ${duration(response.us)}`;
    return make("details", {open: isOpen},
        make("summary", {}, isOneOfMany ? `Attempt ${attempt}: ` : "", asText(request?.method), " ",
             foreign(request?.url, 300), " → ", result),
        tls ? make("p", {}, `${asText(tls.version)}, ${asText(tls.cipher)}; certificate of `, foreign(tls.subject), " by ",
                   foreign(tls.issuer), tls.until ? ` until ${asText(tls.until)}` : "", "; SHA-256 ",
                   make("code", {}, asText(tls.sha256))) : null,
        headerTable("Request", request?.headers), headerTable("Response", response?.headers));
}

function headerTable(title, headers) {
    if (!Array.isArray(headers) || headers.length === 0)
        return null;
    return make("table", {}, make("caption", {}, `${title}: ${count(headers.length, "header")}`),
        make("tbody", {}, headers.map((header) => make("tr", {}, make("th", {scope: "row"}, foreign(header?.[0], 200)),
                                                       make("td", {}, foreignBlock(header?.[1]))))));
}

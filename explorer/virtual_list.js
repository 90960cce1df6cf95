// A list of which only the rows in sight are in the document, so that its length costs nothing.
// It is one stop of the Tab key; the arrow keys move the chosen row.

import {make} from "./dom.js";

const ROWS_BEYOND = 8; // in the document on either side of what is in sight
const MOST_PRINTED = 20000;

export class VirtualList {
    /// @param host     element that scrolls
    /// @param options  role: listbox or tree; label; heightOf(item), in pixels at a font size of 16;
    ///                 render(item, row) fills a row; attributesOf(item) of the row, if any;
    ///                 onChoose(item, index) when a person has moved to a row;
    ///                 onKey(event, item) before the keys of the list, true when it was taken
    constructor(host, options) {
        this.host = host;
        this.options = options;
        this.items = [];
        this.tops = [0];
        this.rows = new Map();
        this.chosen = -1;
        this.id = `list${++VirtualList.made}`;
        this.space = make("div", {class: "rows", role: "presentation"});
        host.append(this.space);
        host.tabIndex = 0;
        host.setAttribute("role", options.role ?? "listbox");
        host.setAttribute("aria-label", options.label);
        host.addEventListener("scroll", () => this.draw());
        host.addEventListener("keydown", (event) => this.key(event));
        host.addEventListener("click", (event) => {
            const row = event.target.closest(".row");
            if (row && !event.target.closest("button, a"))
                this.move(Number(row.dataset.index));
        });
        new ResizeObserver(() => this.reveal()).observe(host);
        window.addEventListener("beforeprint", () => this.drawAll());
        window.addEventListener("afterprint", () => this.redraw());
    }

    setItems(items) {
        this.items = items;
        const scale = parseFloat(getComputedStyle(document.documentElement).fontSize) / 16;
        this.tops = new Array(items.length + 1);
        this.tops[0] = 0;
        items.forEach((item, index) => {
            this.tops[index + 1] = this.tops[index] + this.options.heightOf(item) * scale;
        });
        this.space.style.height = `${this.tops[items.length]}px`;
        this.chosen = -1;
        this.host.removeAttribute("aria-activedescendant");
        this.redraw();
    }

    /// Draws the rows again, as what they show has changed.
    redraw() {
        this.space.classList.remove("printed");
        for (const row of this.rows.values())
            row.remove();
        this.rows.clear();
        this.draw();
    }

    draw() {
        if (this.host.clientHeight === 0)
            return;
        const first = Math.max(0, this.indexAt(this.host.scrollTop) - ROWS_BEYOND);
        const end = Math.min(this.items.length,
                             this.indexAt(this.host.scrollTop + this.host.clientHeight) + 1 + ROWS_BEYOND);
        for (const [index, row] of this.rows)
            if (index < first || index >= end) {
                row.remove();
                this.rows.delete(index);
            }
        for (let index = first; index < end; ++index)
            this.drawRow(index);
        this.mark();
    }

    drawAll() {
        this.space.classList.add("printed");
        for (let index = 0; index < Math.min(this.items.length, MOST_PRINTED); ++index)
            this.drawRow(index);
        // In the order of the list, since nothing holds them in place on paper.
        this.space.append(...[...this.rows.keys()].sort((a, b) => a - b).map((index) => this.rows.get(index)));
    }

    drawRow(index) {
        if (this.rows.has(index))
            return;
        const item = this.items[index];
        const row = make("div", {
            class: "row", id: `${this.id}-${index}`, "data-index": index,
            role: this.options.role === "tree" ? "treeitem" : "option",
            "aria-setsize": this.items.length, "aria-posinset": index + 1,
            "aria-selected": String(index === this.chosen),
            ...this.options.attributesOf?.(item),
        });
        row.style.top = `${this.tops[index]}px`;
        row.style.height = `${this.tops[index + 1] - this.tops[index]}px`;
        this.options.render(item, row);
        this.rows.set(index, row);
        this.space.append(row);
    }

    mark() {
        for (const [index, row] of this.rows) {
            row.setAttribute("aria-selected", String(index === this.chosen));
            if (index === this.chosen)
                this.host.setAttribute("aria-activedescendant", row.id);
        }
    }

    indexAt(offset) {
        let low = 0;
        let high = Math.max(0, this.items.length - 1);
        while (low < high) {
            const middle = (low + high + 1) >> 1;
            if (this.tops[middle] <= offset)
                low = middle;
            else
                high = middle - 1;
        }
        return low;
    }

    /// Shows a row as the chosen one and brings it into sight; -1 for none.
    choose(index) {
        this.chosen = index;
        if (index < 0)
            this.host.removeAttribute("aria-activedescendant");
        this.reveal();
    }

    /// Draws the list and brings the chosen row into sight: to be called when the list itself has come
    /// into sight, as it draws nothing before.
    reveal() {
        if (this.chosen >= 0)
            this.bringIntoSight(this.chosen);
        this.draw();
    }

    bringIntoSight(index) {
        const {scrollTop, clientHeight} = this.host;
        if (this.tops[index] < scrollTop || this.tops[index + 1] > scrollTop + clientHeight)
            this.host.scrollTop = Math.max(0, this.tops[index] - clientHeight / 3);
    }

    move(index) {
        if (this.items.length === 0)
            return;
        const kept = Math.min(Math.max(index, 0), this.items.length - 1);
        this.choose(kept);
        this.options.onChoose?.(this.items[kept], kept);
    }

    key(event) {
        if (event.altKey || event.ctrlKey || event.metaKey || event.target !== this.host)
            return;
        if (this.options.onKey?.(event, this.items[this.chosen])) {
            event.preventDefault();
            return;
        }
        const page = Math.max(1, this.indexAt(this.host.scrollTop + this.host.clientHeight) - this.indexAt(this.host.scrollTop) - 1);
        const target = {
            ArrowDown: this.chosen + 1, ArrowUp: this.chosen - 1, Home: 0, End: this.items.length - 1,
            PageDown: this.chosen + page, PageUp: this.chosen - page,
        }[event.key];
        if (target === undefined)
            return;
        event.preventDefault();
        this.move(target);
    }
}
VirtualList.made = 0;

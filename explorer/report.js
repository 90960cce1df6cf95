// The page of a report: its records stand in it.

import {Page} from "./main.js";
import {readRecord} from "./record.js";

new Page([...document.querySelectorAll("script.record")].map((data) => readRecord(data.textContent)));
document.documentElement.dataset.ready = "true";

// The handset behind a live page: what is asked of it, and what it tells.

import {packageOf} from "./dm_package.js";

async function post(path, body) {
    const response = await fetch(path, {method: "POST", headers: {"Content-Type": "application/json"},
                                        body: JSON.stringify(body)});
    const answer = await response.json().catch(() => ({}));
    if (!response.ok)
        throw new Error(answer.problem ?? `the request was answered with ${response.status}`);
    return answer;
}

/// Tells its listener "mount" when a handset begins again, "record" when something happened, "print"
/// for a line of its shell and "failure" when it has ended.
export class Handset {
    constructor(listener) {
        this.listener = listener;
        this.mounts = []; // the lines of each one's record
        this.printed = [];
        this.failure = null;
        this.snapshots = 0;
        this.packages = 0;
    }

    listen() {
        const events = new EventSource("events");
        events.addEventListener("open", () => this.reset());
        events.addEventListener("message", (message) => this.take(JSON.parse(message.data)));
        events.addEventListener("error", () => this.fail("dmclient explore has ended, or cannot be reached"));
    }

    /// A connection that was made again tells everything from the beginning.
    reset() {
        this.mounts = [];
        this.printed = [];
        this.failure = null;
    }

    take(event) {
        if (Object.hasOwn(event, "mounted")) {
            this.mounts.push([]);
            this.snapshots = event.snapshots;
            this.failure = null;
            this.listener("mount");
        } else if (Object.hasOwn(event, "recorded")) {
            this.mounts.at(-1)?.push(event.recorded);
            this.listener("record", event.recorded);
        } else if (Object.hasOwn(event, "printed")) {
            this.printed.push(event.printed);
            this.listener("print", event.printed);
        } else if (Object.hasOwn(event, "failed")) {
            this.fail(event.failed);
        }
    }

    fail(reason) {
        this.failure = reason;
        this.listener("failure");
    }

    run(commands, source) { return this.runPackage(packageOf(commands, this.packages + 1, source)); }
    runPackage(xml) {
        ++this.packages;
        return post("package", {xml});
    }
    haveSession(server) { return post("session", {server}); }
    lookAt(uri) { return post("stored", {uri}); }
    mountAgain(showSecrets) { return post("mount", {showSecrets}); }
    takeSnapshot() { return post("snapshot", {}); }
    goBackTo(snapshot) { return post("undo", {snapshot}); }
}

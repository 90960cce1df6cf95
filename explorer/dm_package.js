// Packages of a DM server, as the page sends them to the handset.

const ESCAPES = {"&": "&amp;", "<": "&lt;", ">": "&gt;", "\r": "&#13;"};

/// Characters that no XML document can carry.
const OUTSIDE_XML = /[\u0000-\u0008\u000b\u000c\u000e-\u001f\ufffe\uffff]|[\ud800-\udbff](?![\udc00-\udfff])|(?<![\ud800-\udbff])[\udc00-\udfff]/;

function escaped(text) {
    if (OUTSIDE_XML.test(text))
        throw new RangeError("the text has characters that XML cannot carry");
    return text.replace(/[&<>\r]/g, (character) => ESCAPES[character]);
}

const element = (name, content) => `<${name}>${content}</${name}>`;
const uriElement = (name, uri) => element(name, element("LocURI", escaped(uri)));

function meta(command) {
    const fields = ["format", "type"].filter((field) => command[field]).map((field) =>
        `<${field === "format" ? "Format" : "Type"} xmlns="syncml:metinf">${escaped(command[field])}</${field === "format" ? "Format" : "Type"}>`);
    return fields.length > 0 ? element("Meta", fields.join("")) : "";
}

function item(command) {
    const source = command.source ? uriElement("Source", command.source) : "";
    const data = command.value === undefined || command.value === null ? "" : element("Data", escaped(command.value));
    return element("Item", uriElement("Target", command.target) + source + meta(command) + data);
}

/// Commands as {name, target, source of a Copy, format, type, value}; those of an Atomic or a
/// Sequence as {name, commands}.
function commandElement(command, nextId) {
    const id = element("CmdID", nextId());
    const inside = command.commands ? command.commands.map((inner) => commandElement(inner, nextId)).join("")
                                    : item(command);
    return element(command.name, id + inside);
}

/// A package in XML. Throws a RangeError for a text that XML cannot carry.
/// @param source  names who asks, and comes back in the answer
export function packageOf(commands, messageNumber, source = "urn:page") {
    let id = 0;
    const body = commands.map((command) => commandElement(command, () => String(++id))).join("");
    const header = element("VerDTD", "1.2") + element("VerProto", "DM/1.2") + element("SessionID", "1") +
                   element("MsgID", messageNumber) + uriElement("Target", "urn:handset") +
                   uriElement("Source", source);
    return `<?xml version="1.0" encoding="UTF-8"?>\n<SyncML xmlns="SYNCML:SYNCML1.2">` +
           element("SyncHdr", header) + element("SyncBody", body + "<Final/>") + "</SyncML>\n";
}

/// The Replace that gives a node another name.
export function renaming(target, name) {
    return {name: "Replace", target: `${target}?prop=Name`, value: name};
}

/// The Get that lists a node with everything beneath it and all values.
export function listing(target) {
    return {name: "Get", target: `${target}?list=StructData`};
}

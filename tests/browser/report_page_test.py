"""The page of dmclient report, in a browser: every pane, by mouse and by keyboard."""

import base64
import json
import os
import re
import sys
import unittest

import sample_record as sample
import sessions
from handset import CONN, PROXY, SECRET, Handset
from page import Keys, PageTest, setUpModule  # pylint: disable=unused-import
from sample_record import OFFICE, command, line, received, run

SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.append(os.path.join(SOURCES, "tests/integration/record"))
import records  # noqa: E402, pylint: disable=wrong-import-position

SCRIPT = "<script>document.title = 'taken'</script>"
HOSTILE = [SCRIPT, "</script><script>document.title = 'taken'</script>", "<!--<script>", "\"><img src=x onerror=\"document.title='taken'\">",
           "' onmouseover='document.title=1", "javascript:document.title='taken'", "{{7*7}}", "@RECORDS@", "\\u003cb>"]


class TimelineTest(PageTest):
    def test_why_a_speed_was_refused_is_seen_without_a_click(self):
        self.open()
        self.assertIn("Replace …/Profiles/Office/Speed = 1200 Speed illegal! 500 Command failed", self.chosen("#timeline"))
        self.assertIn("Speed illegal!", self.text("#behind .problem"))

    def test_which_bytes_changed_is_seen_after_one_click(self):
        self.open()
        self.click("#timeline .row", "Linger")
        self.assertIn("csdLinger 568–569 30 4464 ≠ cut from 70000 to its low 16 bits", self.text("#behind .changes"))

    def test_shows_each_message_with_its_way(self):
        self.open()
        rows = self.texts("#timeline .row")
        self.assertTrue(any("message 1 · POST · 1 command · 239 bytes · xml" in row for row in rows), rows)
        self.assertTrue(any("message 2 · HTTP 200 · 4 commands, 1 answer · 485 bytes · xml · 21 ms" in row
                            and "challenge: md5" in row for row in rows), rows)
        self.assertTrue(any("attempt 1 · 39 ms ✕ HTTP 503" in row for row in rows), rows)
        self.assertTrue(any("waits 1.00 s: HTTP 503" in row for row in rows), rows)
        self.assertTrue(any("✕ connection refused" in row for row in rows), rows)
        self.assertTrue(any("mount ./DevDetail/Ext/Conf/Conn/Profiles · 5 nodes · 1.0 ms" in row for row in rows), rows)
        self.assertEqual(len(self.all("#timeline .message .to-server")), 2)
        self.assertEqual(len(self.all("#timeline .message .to-client")), 1)

    def test_notes_what_reads_back_differently(self):
        self.open()
        self.assertEqual(self.texts("#timeline .different .note-text"),
                         ["≠ reads 4464", "≠ reads " + "9" * 44, "≠ gone at the next mount"])

    def test_filters_leave_commands_under_their_message(self):
        self.open()
        self.click("#filter-refused")
        rows = self.texts("#timeline .row")
        self.assertEqual(len(rows), 2)
        self.assertIn("message 2", rows[0])
        self.assertIn("Speed", rows[1])
        self.assertEqual(self.text("#filter-result"), "1 command shown of 4")
        self.click("#filter-refused")
        self.click("#filter-different")
        self.assertEqual(len(self.all("#timeline .row.command")), 3)
        self.click("#filter-refused")
        self.assertEqual(len(self.all("#timeline .row.command")), 4)

    def test_a_search_finds_addresses_values_and_reasons(self):
        self.open()
        for words, found in (("office/LINGER", "Linger"), ("1200", "Speed"), ("illegal", "Speed"), ("nowhere", None)):
            with self.subTest(words):
                search = self.find("#search")
                search.clear()
                search.send_keys(words)
                rows = self.texts("#timeline .row.command")
                self.assertEqual(len(rows), 1 if found else 0)
                if found:
                    self.assertIn(found, rows[0])

    def test_of_ten_thousand_commands_only_those_in_sight_are_in_the_document(self):
        self.open([run(), *(command(1000 + number, number, value=str(number), message=None)
                            for number in range(1, 10001))])
        self.assertLess(len(self.all("#timeline .row")), 80)
        self.assertIn("10,000 commands", self.text("#facts"))
        self.find("#timeline").click()
        self.keys(Keys.END)
        self.assertIn("= 10000", self.chosen("#timeline"))
        self.keys(Keys.HOME)
        self.assertIn("= 1 ", self.chosen("#timeline") + " ")
        self.assertLess(len(self.all("#timeline .row")), 80)


class BehindTest(PageTest):
    def test_shows_the_changed_bytes_on_the_map_of_the_record(self):
        self.open(at="command=3")
        self.assertEqual(len(self.all("#behind .map .cell")), 1168)
        changed = self.script("return [...document.querySelectorAll('.map .marked')].map((cell) => Number(cell.dataset.byte))")
        self.assertEqual((changed[0], changed[-1]), (381, 424))
        self.assertIn("≠ cut from 120 to 44 bytes", self.text("#behind .changes"))

    def test_each_byte_of_the_map_is_of_the_field_that_the_header_has_there(self):
        self.open(at="command=3")
        titles = self.script("return [...document.querySelectorAll('#behind .map .cell')].map((cell) => cell.title)")
        self.assertEqual([titles[at] for at in (380, 381, 424, 425)],
                         ["byte 380: reserved142", "byte 381: csdAddress, changed", "byte 424: csdAddress, changed", "byte 425: csdAuthId"])
        colours = self.script("return [...document.querySelectorAll('#behind .map .cell')].map((cell) => cell.className)")
        self.assertIn("part-gprs", colours[8])
        self.assertIn("part-csd first", colours[381].replace(" odd", ""))

    def test_has_the_calls_in_order_with_their_results(self):
        self.open(at="mount=1")
        self.assertEqual(self.texts("#behind .calls tbody tr"),
                         ["1 NAPI_ListAllProfile 0, 1 name 9 µs",
                          "2 setSettingInfo kub_napdef_profilemapping.cfg: NAPIDEF_Profile / 3Ph2DC1 true"])

    def test_shows_mapping_files_as_differences(self):
        self.open(at="mount=1")
        self.assertEqual(self.text("#behind .difference"), "+ [NAPIDEF_Profile] 3Ph2DC1 = Office")
        self.assertEqual(self.text("#behind figcaption"), "kub_napdef_profilemapping.cfg")

    def test_has_the_whole_mapping_files_where_nothing_of_them_changed_too(self):
        for at, whole in (("mount=1", "+ [NAPIDEF_Profile] 3Ph2DC1 = Office"), ("command=1", "[NAPIDEF_Profile] 3Ph2DC1 = Office")):
            self.open(at=at)
            self.click("#behind .mapping summary", "kub_napdef_profilemapping.cfg: 1 entry")
            self.assertEqual(self.text("#behind .mapping .difference"), whole)

    def test_a_mapping_file_is_what_the_calls_up_to_then_have_made_of_it(self):
        call = {"file": "a.cfg", "group": "G", "result": True}
        events = [
            run(), line(1, "mount", mount=1, root=OFFICE),
            line(2, "setting-call", call=1, mount=1, function="open", file="a.cfg", result=True),
            line(3, "setting-call", call=2, mount=1, function="setSettingInfo", key="1", after="One", **call),
            line(4, "setting-call", call=3, mount=1, function="setSettingInfo", key="2", after="Two", **call),
            line(5, "mounted", mount=1, us=4, nodes=1, messages=0, fault=None),
            line(6, "setting-call", call=4, command=1, function="removeEntry", key="1", before="One", **call),
            line(7, "setting-call", call=5, command=1, function="getSettingInfo", key="3", after="Three", **call),
            command(8, 1, message=None),
            line(9, "mount", mount=2, root=OFFICE, command=2),
            line(10, "setting-call", call=6, mount=2, function="open", file="a.cfg", result=True),
            line(11, "setting-call", call=7, mount=2, function="setSettingInfo", key="4", after="Four", **call),
            line(12, "mounted", mount=2, us=3, nodes=1, messages=0, fault=None),
            command(13, 2, message=None),
        ]
        for at, entries in (("mount=1", ["[G] 1 = One", "[G] 2 = Two"]), ("command=1", ["[G] 2 = Two", "[G] 3 = Three"]),
                            ("command=2", ["[G] 4 = Four"])):
            self.open(events, at=at)
            lines = self.script("return document.querySelector('#behind .mapping pre').textContent").strip("\n").split("\n")
            self.assertEqual([one.removeprefix("+").strip() for one in lines], entries, at)

    def test_has_the_plugins_messages_with_their_places(self):
        self.open(at="command=2")
        self.assertEqual(self.text("#behind .plugin-message"), "Speed illegal! DM_Napi_PluginNode.cpp:612")

    def test_has_the_plugins_traces_folded_and_as_text(self):
        self.open(at="command=2")
        self.assertEqual(self.text("#behind .traces summary"), "2 traces")
        self.assertEqual(self.texts("#behind .trace"), [])
        self.click("#behind .traces summary")
        self.wait_for(lambda: len(self.texts("#behind .trace")) == 2)
        self.assertEqual(self.texts("#behind .trace"), [
            "Enter: SetValue()! DM_Napi_PluginNode.cpp:574",
            "Enter: SetValueInternal()! NodeName = <b>Speed</b> DM_Napi_PluginNode.cpp:595"])

    def test_offers_a_line_of_a_scenario(self):
        self.open(at="command=2")
        self.click("#behind button", "line of a scenario")
        self.assertEqual(json.loads(self.find("#offer-text").get_attribute("value")),
                         {"replace": OFFICE + "/Speed", "data": "1200", "format": "int", "expect": 500})

    def test_the_table_of_fields_is_that_of_the_handsets_header(self):
        self.open(at="command=3")
        self.click("#behind .fields summary")
        names = self.texts("#behind .fields tbody th")
        offsets = [text.split("–")[0] for text in self.texts("#behind .fields tbody .quantity")]
        rows = self.texts("#behind .fields tbody tr")
        with open(os.path.join(SOURCES, "platform/napi.h"), encoding="utf-8") as header:
            fields = re.findall(r"offsetof\(NAP_PROFILE_S, (\w+)\) == 0x(\w+)\)", header.read())
        self.assertEqual(list(zip(names, offsets)), [(name, str(int(offset, 16))) for name, offset in fields])
        self.assertIn("gprsAddress packet data, GSM-GPRS 8–107 internet internet", rows)
        self.assertIn("proxy2Byte second proxy 1166 0 0", rows)


class MessageTest(PageTest):
    def test_an_element_marks_its_bytes(self):
        self.open(at="message=3")
        self.click("#message .elements .row", "VerDTD")
        self.assertEqual(self.texts("#message .byte.marked"), ["71", "c3", "03", "31", "2e", "32", "01"])

    def test_a_byte_marks_its_element(self):
        self.open(at="message=3")
        self.click("#message .byte[data-offset='10']")
        self.assertEqual(self.chosen("#message .elements"), "VerDTD 1.2")

    def test_names_what_a_wbxml_message_begins_with(self):
        self.open(at="message=3")
        self.assertEqual(self.texts("#message .elements .row")[:5],
                         ["WBXML version 1.2", "public id SyncML 1.2", "character set UTF-8",
                          "size of the string table 0", "SyncML"])

    def test_elements_of_xml_have_their_places(self):
        self.open(at="message=2")
        self.click("#message .elements .row", "VerProto")
        marked = "".join(self.texts("#message .byte.marked"))
        self.assertEqual(bytes.fromhex(marked), b"<VerProto>DM/1.2</VerProto>")

    def test_marks_the_command_that_is_chosen(self):
        self.open(at="command=2&pane=message")
        self.assertEqual(self.chosen("#message .elements"), "Replace")
        self.assertTrue(bytes.fromhex("".join(self.texts("#message .byte.marked"))).startswith(b"<Replace><CmdID>4"))

    def test_says_where_a_message_cannot_be_read(self):
        broken = b"\x02\xa4\x01\x6a\x00\x6d\x6c\x71\xc3\x7f\x31"
        self.open([run(), received(10, 1, broken, encoding="wbxml", fault="byte 8: it breaks off")], at="message=1")
        self.assertIn("✕ cannot be read: byte 8: it breaks off", self.text("#message .problem"))
        self.assertIn("cannot be read byte 8: 127 bytes announced, but only 1 are left",
                      self.texts("#message .elements .row")[-1])

    def test_shows_headers_and_certificates(self):
        self.open(at="message=2")
        self.click("#message .headers summary", "Attempt 2")
        self.assertIn("TLS 1.3, TLS_AES_256_GCM_SHA384; certificate of CN=dm.example by CN=Test", self.text("#message .headers"))
        self.assertIn("Content-Type application/vnd.syncml.dm+xml", self.text("#message .headers"))

    @staticmethod
    def sent_message():
        return next(event for event in sample.session() if event["event"] == "message" and event["message"] == 3)

    def test_is_saved_byte_for_byte(self):
        self.open(at="message=3")
        self.click("#message button", "Save for dmclient process")
        saved = os.path.join(self.folder, "message-3.wbxml")
        self.wait_for(lambda: os.path.exists(saved))
        with open(saved, "rb") as file:
            self.assertEqual(file.read(), base64.b64decode(self.sent_message()["bytes"]))

    def test_is_offered_as_a_package_of_a_scenario(self):
        self.open(at="message=2")
        self.click("#message button", "package of a scenario")
        package = json.loads(self.find("#offer-text").get_attribute("value"))
        self.assertEqual([list(one)[0] for one in package["commands"]], ["replace", "replace", "replace", "add"])

    def test_without_bytes_shows_what_was_decoded(self):
        self.open([run(), line(5, "message", message=1, direction="received", size=10, bytes=None, encoding="xml",
                               decoded={"header": {"msgId": "7"}, "commands": [{"name": "Get", "cmdId": "2"}]})],
                  at="message=1")
        self.assertEqual(self.texts("#message .elements .row"), ["header", "msgId 7", "commands", "Get", "name Get", "cmdId 2"])


class TreeTest(PageTest):
    def test_shows_the_tree_after_a_command_with_what_it_changed(self):
        self.open(at="command=1&pane=tree")
        self.assertEqual(self.texts("#tree .row.changed"), ["≠ Linger int 4464"])
        self.assertIn("after command 1: Replace …/Profiles/Office/Linger · ≠ 1 changed", self.text("#tree .caption"))

    def test_after_a_command_that_changed_nothing_is_as_the_one_before_has_left_it(self):
        """Also where the handset's tree was looked at after all of them."""
        late = [{**event, "t": event["t"] + 10**9} if event["event"] == "tree" else event for event in sample.session()]
        self.open(late, at="command=2&pane=tree")
        self.assertIn("after command 1: Replace …/Profiles/Office/Linger", self.text("#tree .caption"))
        self.click("#tree .row", "Linger")
        self.assertIn("1.064 ≠ changed after command 1: Replace …/Profiles/Office/Linger: 4464", self.texts("#tree .history li"))

    def test_goes_from_before_to_the_next_mount(self):
        self.open(at="command=2&pane=tree")
        self.click("#tree button", "Before")
        self.assertIn("+ Linger int 30", self.texts("#tree .tree .row"))
        self.click("#tree button", "After")
        self.assertIn("Linger int 4464", self.texts("#tree .tree .row"))
        self.click("#tree button", "Next mount")
        self.assertEqual(self.texts("#tree .row.went"), ["− Foo chr x"])

    def test_marks_what_changed_since_the_beginning(self):
        self.open(at="command=4&pane=tree")
        self.assertEqual(len(self.all("#tree .row.changed")), 0)
        self.click("#tree option", "since before")
        self.assertEqual(len(self.all("#tree .row.changed")), 2)
        self.assertEqual(self.texts("#tree .row.appeared"), ["+ Foo chr x"])

    def test_of_a_record_without_a_tree_says_so(self):
        self.open([run(), command(10, 1, message=None)], at="command=1&pane=tree")
        self.assertEqual(self.text("#tree .caption"), "This record says nothing of the tree.")

    def marked(self):
        return self.script("return [...document.querySelectorAll('#tree .map .marked[data-byte]')].map((cell) => Number(cell.dataset.byte))")

    def test_a_leaf_shows_the_record_of_its_profile_with_its_field_marked(self):
        self.open(at="command=1&pane=tree")
        self.click("#tree .row", "Linger")
        self.assertEqual(len(self.all("#tree .map .cell")), sample.RECORD_SIZE)
        self.assertEqual(self.marked(), [568, 569])
        self.assertIn("Office (ID 3), 1168 bytes. This leaf is csdLinger, bytes 568–569: 4464", self.text("#tree .stored"))
        self.click("#tree .mapping summary", "kub_napdef_profilemapping.cfg: 1 entry")
        self.assertIn("3Ph2DC1 = Office", self.text("#tree .mapping"))

    def test_the_record_of_a_node_is_that_of_the_moment(self):
        self.open(at="command=3&pane=tree")
        self.click("#tree .row", "Addr")
        self.assertIn("381–424: " + "9" * 44, self.text("#tree .stored"))
        self.script("location.hash = 'command=1&pane=tree'")
        self.wait_for(lambda: "381–424: +491720000" in self.text("#tree .stored"))
        self.click("#tree button", "Before")
        self.assertIn("No record of a profile is known for this node at this moment.", self.text("#tree .stored"))

    def test_a_node_above_the_profiles_has_no_record(self):
        self.open(at="command=1&pane=tree")
        self.script("document.querySelector('#tree .tree').scrollTop = 0")
        self.click("#tree .row", "DevDetail")
        self.assertEqual(self.text("#tree .stored"), "")

    def test_a_leaf_has_its_history(self):
        self.open(at="command=1&pane=tree")
        self.click("#tree .row", "Linger")
        self.assertEqual(self.texts("#tree .history li"),
                         ["1.063 + appeared after the mount of ./DevDetail/Ext/Conf/Conn/Profiles: 30",
                          "1.064 Replace 1 200 OK ≠ reads 4464",
                          "1.064 ≠ changed after command 1: Replace …/Profiles/Office/Linger: 4464"])
        self.click("#tree .history button", "Replace 1")
        self.assertIn("Linger", self.chosen("#timeline"))


class ComparisonTest(PageTest):
    def two(self):
        other = [{**event} for event in sample.session()]
        for event in other:
            if event["event"] == "command" and event["command"] == 2:
                event.update(status=200, meaning="OK", reason=None)
        return sample.session(), [event for event in other if event.get("command") != 4]

    def test_shows_what_differs(self):
        self.open(*self.two())
        self.assertEqual(self.find("#tab-compare").get_attribute("aria-selected"), "true")
        rows = self.texts("#compare .comparison .row")
        self.assertEqual(len(rows), 3, rows)
        self.assertIn("≠ Replace …/Profiles/Office/Speed status, reason 500", rows[0])
        self.assertIn("≠ Add …/Profiles/Office/Foo only one record has it", rows[1])
        self.assertIn("≠ node …/Profiles/Office/Foo x is not there", rows[2])

    def test_leads_to_the_command_in_either_record(self):
        self.open(*self.two())
        self.click("#compare .row", "Speed")
        self.click("#compare button", "Open it in record 2")
        self.assertIn("200 OK", self.chosen("#timeline"))
        self.click("#record-0")
        self.assertIn("500 Command failed", self.chosen("#timeline"))

    def test_the_same_record_twice_has_no_difference(self):
        self.open(sample.session(), sample.session())
        self.assertIn("0 commands of 4 differ; at the end of the trees 0 nodes do.", self.text("#compare .caption"))


class AddressTest(PageTest):
    def test_leads_to_a_command_and_follows_the_choice(self):
        self.open(at="command=4")
        self.assertIn("Add", self.chosen("#timeline"))
        self.click("#timeline .row", "Linger")
        self.assertTrue(self.browser.current_url.endswith("#command=1"), self.browser.current_url)
        self.script("location.hash = 'message=3'")
        self.wait_for(lambda: "Message 3" in self.text("#message"))

    def test_of_what_is_not_there_leads_to_the_first_trouble(self):
        for at in ("command=99", "command=x", "message=-1&pane=nowhere", "moment=7&pane=tree&command=1e9"):
            with self.subTest(at):
                self.open(at=at)
                self.assertIn("Speed", self.chosen("#timeline"))


class KeyboardTest(PageTest):
    def test_leads_through_every_pane(self):
        self.open(*ComparisonTest.two(self))
        self.keys("1")
        self.assertEqual(self.focused(), "timeline")
        self.keys(Keys.HOME, Keys.ARROW_DOWN)
        self.assertIn("attempt 1", self.chosen("#timeline"))
        self.keys("n")
        self.assertIn("Linger", self.chosen("#timeline"))
        self.keys("p", "n", "n")
        self.assertIn("Addr", self.chosen("#timeline"))
        self.keys("2")
        self.assertEqual(self.focused(), "behind")
        self.keys("3", Keys.ARROW_DOWN, Keys.ARROW_DOWN)
        self.assertEqual(self.chosen("#message .elements"), "SyncML")
        self.keys("4", Keys.HOME)
        self.assertIn(".", self.chosen("#tree .tree"))
        self.keys(Keys.ARROW_LEFT)
        self.assertEqual(len(self.all("#tree .tree .row")), 1)
        self.keys(Keys.ARROW_RIGHT)
        self.assertGreater(len(self.all("#tree .tree .row")), 5)
        self.keys("5", Keys.ARROW_DOWN)
        self.assertIn("Speed", self.text("#compare .pair"))

    def test_moves_byte_by_byte(self):
        self.open(at="message=3")
        self.script("document.querySelector('#message .bytes').focus()")
        self.keys(Keys.HOME, Keys.ARROW_RIGHT)
        self.assertEqual(self.chosen("#message .elements"), "public id SyncML 1.2")

    def test_filters_searches_and_helps(self):
        self.open()
        self.keys("r")
        self.assertEqual(len(self.all("#timeline .row.command")), 1)
        self.keys("r", "d")
        self.assertEqual(len(self.all("#timeline .row.command")), 3)
        self.keys("d", "/", "foo")
        self.assertEqual(len(self.all("#timeline .row.command")), 1)
        self.keys(Keys.ESCAPE)
        self.assertEqual(self.focused(), "timeline")
        self.keys("?")
        self.assertTrue(self.find("#help").is_displayed())
        self.keys(Keys.ESCAPE)
        self.assertFalse(self.find("#help").is_displayed())

    def test_the_tab_key_reaches_every_control_and_shows_where_it_is(self):
        self.open()
        reached = []
        for _ in range(25):
            self.keys(Keys.TAB)
            reached.append(self.focused())
            width = self.script("return getComputedStyle(document.activeElement).outlineWidth")
            if reached[-1]:
                self.assertEqual(width, "2px", reached[-1])
        for wanted in ("filter-refused", "filter-different", "search", "show-help", "timeline", "tab-behind", "behind"):
            self.assertTrue(any(wanted in one.split() for one in reached), (wanted, reached))


class AccessibilityTest(PageTest):
    def test_every_control_has_a_name_and_every_list_a_role(self):
        self.open(*ComparisonTest.two(self))
        for pane in ("behind", "message", "tree", "compare"):
            self.script("document.getElementById('tab-' + arguments[0]).click()", pane)
            nodes = self.browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
            asked = {"button", "tab", "slider", "combobox", "searchbox", "checkbox", "listbox", "tree", "option", "treeitem",
                     "tabpanel", "textbox", "dialog"}
            for node in nodes:
                role = node.get("role", {}).get("value")
                if not node["ignored"] and role in asked:
                    self.assertTrue(node.get("name", {}).get("value"), (pane, role, node))

    def test_nothing_lies_beyond_the_edge_at_two_hundred_percent(self):
        try:
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                         {"width": 640, "height": 400, "deviceScaleFactor": 2, "mobile": False})
            for at in ("command=3", "message=2", "command=1&pane=tree"):
                self.open(at=at)
                self.assertLessEqual(self.script("return document.documentElement.scrollWidth"), 640, at)
        finally:
            self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def test_texts_stand_out_in_both_schemes(self):
        contrast = """
            const part = (text) => text.match(/[0-9.]+/g).slice(0, 3).map((value) => value / 255)
                .map((value) => value <= 0.04045 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4);
            const light = (text) => { const [r, g, b] = part(text); return 0.2126 * r + 0.7152 * g + 0.0722 * b; };
            const ground = (one) => { for (; one; one = one.parentElement) {
                const colour = getComputedStyle(one).backgroundColor;
                if (!/, 0\\)$|transparent/.test(colour)) return colour; } return "rgb(255,255,255)"; };
            return [...document.querySelectorAll("body *")].filter((one) => one.checkVisibility() &&
                [...one.childNodes].some((node) => node.nodeType === 3 && node.data.trim())).map((one) => {
                    const [a, b] = [light(getComputedStyle(one).color), light(ground(one))].sort((x, y) => y - x);
                    return [(a + 0.05) / (b + 0.05), one.className, one.textContent.slice(0, 40)]; })
                .filter(([ratio]) => ratio < 4.5)"""
        for scheme in ("light", "dark"):
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                         {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
            for at in ("command=2", "command=3", "message=2", "command=1&pane=tree"):
                with self.subTest(scheme=scheme, at=at):
                    self.open(at=at)
                    self.assertEqual(self.script(contrast), [])


class PrintTest(PageTest):
    def test_a_printed_page_has_the_whole_timeline(self):
        self.open([run(), *(command(1000 + number, number, value=str(number), message=None) for number in range(1, 301))])
        self.script("""window.printed = null; addEventListener("beforeprint", () => {
            window.printed = document.querySelectorAll("#timeline .row").length; });""")
        pdf = base64.b64decode(self.browser.execute_cdp_cmd("Page.printToPDF", {})["data"])
        self.assertEqual(self.script("return window.printed"), 300)
        self.assertGreater(pdf.count(b"/Type /Page\n"), 5)
        self.assertLess(len(self.all("#timeline .row")), 80)


class SessionTest(PageTest, sessions.SessionTest):
    """The page of a record that a session has written."""

    PACKAGES = [{"commands": [
        {"replace": CONN + "/Office/Linger", "data": "70000", "format": "int"},
        {"replace": CONN + "/Home/Speed", "data": "1200", "format": "int", "expect": 500},
        {"add": CONN + "/Office/Foo", "data": "x", "format": "chr"},
        {"get": CONN + "/Office/Linger"},
        {"replace": CONN + "/Office/Auth/PAP/AuthPw", "data": SECRET}]}]

    def record_of(self, encoding):
        record = os.path.join(self.folder, encoding + ".jsonl")
        self.handset.napictl("set", "Office", "gprs.linger=30")
        self.play(sessions.scenario("profiles", packages=self.PACKAGES, client_auth="md5"),
                  "--encoding", encoding, "--record", record, client_auth="md5")
        with open(record, encoding="utf-8") as file:
            return file.read()

    def structure(self):
        """The server's commands, element by element with their texts, as the page has them."""
        self.click("#timeline .row.message", "5 commands")
        rows = self.texts("#message .elements .row")
        return rows[rows.index("Replace"):]

    def test_shows_what_the_handset_did_in_both_encodings(self):
        structures = {}
        # So high that all rows of the message are in the document.
        self.browser.set_window_size(1400, 6000)
        self.addCleanup(self.browser.set_window_size, 1400, 900)
        for encoding in sessions.ENCODINGS:
            self.open(self.record_of(encoding))
            self.assertIn("Speed = 1200", self.chosen("#timeline"))
            self.assertIn("Speed illegal", self.text("#behind"))
            self.click("#timeline .row", "Linger = 70000")
            self.assertIn("gprsLinger 320–321 30 4464 ≠ cut from 70000 to its low 16 bits", self.text("#behind .changes"))
            structures[encoding] = self.structure()
            self.assertNotIn(SECRET, self.script("return document.documentElement.outerHTML"))
        self.assertEqual(structures["xml"], structures["wbxml"])
        self.assertIn("LocURI " + CONN + "/Home/Speed", structures["xml"])

    def test_the_record_of_the_other_tests_is_one_that_dmclient_could_write(self):
        self.assertEqual(records.faults(sample.session()), [])


class StoredTest(PageTest):
    """Which field a leaf is, as the page says it, is which one the plug-in changes."""

    VALUES = {
        "Office": {"Addr": "b", "DNS1": "10.9.8.7", "DNS2": "10.9.8.6", "Linger": "9", "Auth/PAP/AuthId": "c", "Auth/PAP/AuthPw": "d"},
        "Home": {"Addr": "1", "DNS1": "10.9.8.7", "DNS2": "10.9.8.6", "Linger": "9", "Speed": "2400", "LineType": "Isdn",
                 "Auth/PAP/AuthId": "c", "Auth/PAP/AuthPw": "d"},
        "Office/": {"Ph1/Addr": "p", "Ph1/Port/PortNbr": "99", "Ph2/Addr": "q", "Ph2/Port/PortNbr": "98", "UserEditable": "false"},
    }

    def test_the_field_of_each_leaf_is_the_one_that_a_replace_changes(self):
        handset = Handset()
        self.addCleanup(handset.close)
        leaves = [(f"{PROXY}/Office/{leaf}" if name.endswith("/") else f"{CONN}/{name}/{leaf}", value)
                  for name, values in self.VALUES.items() for leaf, value in values.items()]
        record = os.path.join(self.folder, "leaves.jsonl")
        handset.succeed("dmclient", "--record", record, "shell", stdin="".join(f"replace {uri} {value}\n" for uri, value in leaves))
        with open(record, encoding="utf-8") as file:
            events = [json.loads(one) for one in file]
        changes = [[change["field"] for change in event["changes"]] for event in events if event.get("function") == "NAPI_ModifyProfile"]
        self.assertEqual([len(fields) for fields in changes], [1] * len(leaves), changes)
        # So high that all rows of the tree are in the document.
        self.browser.set_window_size(1400, 6000)
        self.addCleanup(self.browser.set_window_size, 1400, 900)
        self.open("".join(json.dumps(event) + "\n" for event in events), at="pane=tree")
        shown = self.script("""return arguments[0].map((uri) => {
            [...document.querySelectorAll('#tree .row')].find((row) => row.dataset.uri === uri).click();
            return [document.querySelector('#tree .stored-field code').textContent];
        })""", [uri for uri, _ in leaves])
        self.assertEqual(shown, changes)


class HostileRecordTest(PageTest):
    def test_whatever_a_server_sends_stays_text(self):
        events = [run(arguments=HOSTILE)]
        for number, text in enumerate(HOSTILE, 1):
            owner = {"command": number}
            events += [
                received(number * 100, number, text.encode(), {"header": {text: text}, "commands": [{"name": text, "chal": {"type": text}}]},
                         fault=text, exchange=number),
                line(number * 100, "request", exchange=number, attempt=1, method=text, url=text, headers=[[text, text]], size=1),
                line(number * 100, "response", exchange=number, attempt=1, us=5, failure=text, headers=[[text, text]],
                     tls={"version": text, "subject": text, "sha256": text}),
                line(number * 100, "profile-call", call=number, function=text, profile=text, result=1, reason=text, **owner),
                line(number * 100, "setting-call", call=number, function=text, file=text, group=text, key=text, before=text,
                     after=text + "2", result=False, **owner),
                line(number * 100, "plugin-message", place=text, text=text, **owner),
                line(number * 100, "tree", appeared=[{"uri": "./" + text, "format": text, "value": text}], **owner),
                command(number * 100 + 50, number, name=text, target="./" + text, source=text, value=text, meaning=text, reason=text,
                        message=number, format=text, type=text),
                line(number * 100 + 60, "read-back", note=text, reads=text, **owner),
            ]
        self.open(events, events)
        for number in range(1, len(HOSTILE) + 1):
            for at in (f"command={number}", f"message={number}", f"command={number}&pane=tree", "pane=compare"):
                self.script("location.hash = arguments[0]", at)
        self.keys("5", Keys.ARROW_DOWN)
        self.assertTrue(self.browser.title.endswith("– what the handset did"))
        self.assertEqual(len(self.all("script")), 3)
        self.assertEqual(self.all("img, iframe, object, embed, form, body b b"), [])
        self.assertIn(SCRIPT, self.text("#title"))

    def test_what_turns_a_line_around_is_shown(self):
        self.open([run(), command(10, 1, target="./A\u202eB\u200bC", value="x\u0007y", message=None, reason="line\u2028\nbreak")])
        self.assertIn("./A⟨U+202E⟩B⟨U+200B⟩C", self.chosen("#timeline"))
        self.assertIn("x⟨U+0007⟩y", self.text("#behind dl"))

    def test_a_value_of_a_megabyte_is_cut_until_it_is_asked_for(self):
        self.open([run(), command(10, 1, format="chr", value="x" * 2**20, message=None)])
        self.assertLess(self.script("return document.body.innerText.length"), 100000)
        self.click("#behind button", "Show all 1,048,576 characters")
        self.assertEqual(self.script("return document.querySelector('#behind .value').textContent.length"), 2**20)

    def test_a_record_that_breaks_off_shows_what_it_has(self):
        whole = sample.text(sample.session()).splitlines(keepends=True)
        cut = "".join(whole[:18]) + whole[18][:40]
        self.open(cut)
        self.assertIn("the record has no end", self.text("#facts"))
        self.assertTrue(any("did not end" in row for row in self.texts("#timeline .row")), self.texts("#timeline .row"))

    def test_odd_events_do_no_harm(self):
        odd = [{"event": "yesterday", "t": 1}, {"event": "constructor", "t": 1}, {"event": "command"}, {"event": "message", "message": {}},
               {"event": "tree", "command": 1, "appeared": "x"}, {"event": "tree", "command": 1, "changed": [{"uri": 5}]},
               {"event": "profile-call", "command": 1, "function": "NAPI_ModifyProfile", "before": "!", "after": "AAAA", "changes": 5},
               {"event": "command", "command": 1, "status": "x", "target": 5, "value": {"a": []}},
               {"event": "__proto__"}, {"event": "response", "exchange": 1}, {"event": "end", "kind": 7}]
        self.open([run(), *({"t": 1, **event} for event in odd)], at="command=1")
        for pane in ("behind", "message", "tree"):
            self.script("document.getElementById('tab-' + arguments[0]).click()", pane)


if __name__ == "__main__":
    unittest.main()

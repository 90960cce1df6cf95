"""The page of dmclient explore: what a person does on it, and sees of a handset that runs behind it."""

import json
import unittest

import page
import scenario as scenarios
from commands import package_of, replace
from dmserver import DmServer
from explorer import Explorer
from handset import CONN, SECRET, Handset
from page import PageTest
from page import setUpModule as setUpModule  # one browser for all of these tests
from sessions import scenario

LINGER = CONN + "/Office/Linger"
HOSTILE = "</script><script>document.title='taken over'</script>\"'<img src=x onerror=alert(1)>\u202e"


class LivePageTest(PageTest):
    def setUp(self):
        self.handset = Handset()
        self.addCleanup(self.handset.close)
        self.explorer = Explorer(self.handset)
        self.addCleanup(self.explorer.end)
        for log in ("browser", "performance"):
            self.browser.get_log(log)  # what the page before has asked last
        self.browser.get(self.explorer.url.geturl())
        self.wait_for(lambda: "mount " in self.text("#timeline"))

    def tearDown(self):
        """As of every page; but this one asks its own server."""
        self.assertEqual([entry["message"] for entry in self.browser.get_log("browser")], [])
        requests = [json.loads(entry["message"])["message"] for entry in self.browser.get_log("performance")]
        addresses = [event["params"]["request"]["url"] for event in requests
                     if event["method"] == "Network.requestWillBeSent"]
        self.assertEqual([url for url in addresses
                          if not url.startswith(("data:,", "blob:", self.explorer.url.geturl()))], [])
        self.browser.get("about:blank")

    def click(self, selector, words=None):
        """As of every page; but what is to be clicked may be drawn again at that moment."""
        for _ in range(20):
            try:
                return super().click(selector, words)
            except page.StaleElementReferenceException:
                pass
        return super().click(selector, words)

    def fill(self, field, text):
        self.script("arguments[0].value = arguments[1]", self.find("#work-" + field), text)

    def press(self, name):
        """A button of the pane of work, which is opened for that."""
        self.click("#tab-work")
        self.click("#work-" + name)

    def run_command(self, name, address, value, result, shown=None):
        """Runs a command from the page, and waits for its line in the timeline."""
        self.fill("address", address)
        self.fill("value", value)
        self.press(name)
        self.wait_for(lambda: any((shown or value) in line and result in line for line in self.texts("#timeline .row")))

    def test_command_shows_what_it_did_to_the_record(self):
        self.run_command("replace", LINGER, "70000", "200 OK")
        self.click("#tab-behind")
        self.assertIn("gprsLinger", self.text("#behind"))
        self.assertIn("4464", self.text("#behind"))
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 4464)

    def test_refused_command_says_why(self):
        self.run_command("replace", CONN + "/Office/Speed", "1200", "500")
        self.click("#tab-behind")
        self.assertIn("Speed illegal", self.text("#behind"))

    def test_mounting_again_shows_at_once_which_nodes_go(self):
        self.run_command("add", CONN + "/Office/Foo", "x", "200 OK")
        self.press("mount")
        self.wait_for(lambda: "1 went" in self.text("#tree .caption"))
        self.assertEqual([line for line in self.texts("#tree .row.went") if "Foo" in line], self.texts("#tree .row.went"))

    def test_snapshot_is_gone_back_to(self):
        self.run_command("replace", LINGER, "5", "200 OK")
        self.press("back-0")
        self.wait_for(lambda: self.handset.profile("Office")["gprs"]["linger"] == 30)
        self.wait_for(lambda: "1 changed" in self.text("#tree .caption"))

    def test_atomic_of_several_commands_is_collected_and_run(self):
        self.press("collects")
        for value in ("7", "8"):
            self.fill("address", LINGER)
            self.fill("value", value)
            self.press("replace")
        self.assertEqual(len(self.texts("#work-atomic li")), 2)
        self.press("run-atomic")
        self.wait_for(lambda: self.handset.profile("Office")["gprs"]["linger"] == 8)

    # ---- Sessions, packages, snapshots ----

    def see_problem(self, words):
        self.wait_for(lambda: words in self.text("#work-problem"))

    def test_session_that_is_held_arrives(self):
        with DmServer(scenario("profiles")) as server:
            self.fill("server", server.url)
            self.press("session")
            self.wait_for(lambda: "Session completed" in self.text("#work-console"))
            self.assertEqual(server.session.report()["faults"], [])
        rows = self.texts("#timeline .row")
        self.assertTrue(any("HTTP 200" in row for row in rows), rows)
        self.assertTrue(any("Add …/Profiles/Roaming" in row for row in rows), rows)
        self.assertNotIn("list=StructData", self.text("#work-console"))
        self.wait_for(lambda: self.all("#work-addresses option[value$='/Roaming/Addr']"))

    def test_package_is_run(self):
        self.fill("package", package_of(replace(LINGER, "12")))
        self.press("run")
        self.wait_for(lambda: any("Linger = 12" in row and "200 OK" in row for row in self.texts("#timeline .row")))
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 12)

    def test_what_cannot_be_done_is_said_at_the_top_of_the_pane(self):
        for field, text, name, words in (
                ("server", "", "session", "give the name of an account, or the URL of a server"),
                ("server", "Nobody", "session", "\"Nobody\" is not an account"),
                ("server", "http://127.0.0.1:1/", "session", "Session failed: http://127.0.0.1:1/: Connection refused"),
                ("package", "", "run", "there is no package yet"),
                ("package", "<SyncML>", "run", "the package: line 1, column 8: no element found"),
                ("address", "", "get", "give the address of a node")):
            with self.subTest(words):
                self.fill(field, text)
                self.press(name)
                self.see_problem(words)
        self.press("scenario")
        self.see_problem("nothing was done since this mount")
        self.run_command("replace", LINGER, "5", "200 OK")
        self.assertEqual(self.text("#work-problem"), "")

    def test_snapshot_leaves_the_pane_and_going_back_leads_to_the_tree(self):
        self.press("snapshot")
        self.wait_for(lambda: "Back to snapshot 1" in self.text("#work-snapshots"))
        self.assertTrue(self.find("#work").is_displayed())
        self.run_command("replace", LINGER, "6", "200 OK")
        self.press("back-1")
        self.wait_for(lambda: "list tree" in self.focused())
        self.wait_for(lambda: "≠ 1 changed" in self.text("#tree .caption"))
        self.assertEqual(self.handset.profile("Office")["gprs"]["linger"], 30)

    def test_saved_scenario_gives_the_same_statuses_from_the_scripted_server(self):
        self.run_command("replace", LINGER, "70000", "200 OK")
        self.run_command("replace", CONN + "/Home/Speed", "1200", "500")
        self.run_command("add", CONN + "/Office/Foo", "x & <y>", "200 OK")
        self.run_command("get", CONN + "/Office/Foo", "", "200 OK", shown="Get …/Profiles/Office/Foo")
        self.run_command("get", CONN + "/Nobody", "", "404", shown="Nobody")
        self.run_command("rename", CONN + "/Home", "Flat", "200 OK")
        self.run_command("copy", CONN + "/Office/DNS1", CONN + "/Office/DNS2", "200 OK", shown="Copy")
        self.press("collects")
        for value in ("7", "x"):
            self.fill("address", LINGER)
            self.fill("value", value)
            self.press("replace")
        self.press("run-atomic")
        self.wait_for(lambda: any("Linger = x" in row for row in self.texts("#timeline .row")))
        self.press("collects")
        self.run_command("delete", CONN + "/Flat", "", "200 OK", shown="Delete")
        self.press("scenario")
        saved = json.loads(self.find("#offer-text").get_attribute("value"))
        self.click("#offer .close")
        statuses = {status for package in saved["packages"] for one in package["commands"] for status in [one.get("expect", 200)]}
        self.assertGreaterEqual(statuses, {200, 404, 500}, saved)
        other = Handset()
        self.addCleanup(other.close)
        with DmServer(scenarios.check(saved)) as server:
            other.run("dmclient", "session", server.url)
            report = server.session.report()
        self.assertEqual(report["faults"], [], saved)

    def test_scenario_has_what_was_done_since_the_mount_that_is_shown(self):
        self.run_command("replace", LINGER, "5", "200 OK")
        self.press("mount")
        self.wait_for(lambda: "Mount 2" in self.text("#records"))
        self.run_command("replace", LINGER, "6", "200 OK")
        for mount, value in (("Mount 2", "6"), ("Mount 1", "5")):
            self.click("#records button", mount)
            self.press("scenario")
            saved = json.loads(self.find("#offer-text").get_attribute("value"))
            self.click("#offer .close")
            self.assertEqual([one["commands"][0]["data"] for one in saved["packages"]], [value])

    def test_what_was_done_is_saved_as_a_scenario(self):
        self.run_command("replace", LINGER, "5", "200 OK")
        self.run_command("rename", CONN + "/Home", "Flat", "200 OK")
        self.press("scenario")
        scenario = json.loads(self.find("#offer-text").get_attribute("value"))
        self.assertEqual([one["commands"] for one in scenario["packages"]],
                         [[{"replace": LINGER, "data": "5"}], [{"rename": CONN + "/Home", "name": "Flat"}]])
        self.click("#offer .close")

    def test_hostile_values_stay_text(self):
        self.run_command("replace", CONN + "/Office/Addr", HOSTILE, "200 OK", shown="<script>")
        self.click("#tab-tree")
        self.wait_for(lambda: "<script>" in self.text("#tree"))
        self.assertNotIn("taken over", self.browser.title)
        self.assertEqual(self.all("#timeline img, #tree img, #behind img"), [])

    def test_text_that_no_package_can_carry_is_refused_on_the_page(self):
        self.fill("value", "\u0001")
        self.press("replace")
        self.assertIn("XML cannot carry", self.text("#work-problem"))

    def test_secrets_are_masked_until_they_are_asked_for(self):
        self.assertNotIn(SECRET, self.browser.page_source)
        self.press("secrets")
        self.press("mount")
        self.wait_for(lambda: "mount " in self.text("#timeline") and "shows secrets" in self.text("#facts"))
        self.click("#tab-tree")
        self.wait_for(lambda: SECRET in self.text("#tree"))

    def test_node_that_is_chosen_in_the_tree_is_worked_on(self):
        self.click("#tab-tree")
        self.wait_for(lambda: "Linger" in self.text("#tree"))
        self.click("#tree .row", "Linger")
        self.click("#tab-work")
        self.assertEqual(self.find("#work-address").get_attribute("value"), LINGER)

    # ---- What a handset does that was not asked for ----

    def notes(self, selector):
        return [text.split("≠ ", 1)[1] for text in self.texts(selector) if "≠ " in text]

    def see_noted_at_once(self, name, address, value, note):
        self.run_command(name, address, value, "≠ " + note)

    def see_noted_when_mounted_again(self, note):
        """What the mount has undone stands beside the tree, and leads to the command."""
        self.press("mount")
        self.wait_for(lambda: any(self.texts("#tree .undone .note-text")))
        self.assertEqual(self.notes("#tree .undone .note-text"), [note])
        self.click("#tree .undone button")
        self.assertIn("≠ " + note, self.chosen("#timeline"))

    def test_linger_beyond_its_field_is_noted(self):
        self.see_noted_at_once("replace", LINGER, "70000", "reads 4464")

    def test_address_of_a_server_that_is_none_is_noted(self):
        self.see_noted_at_once("replace", CONN + "/Office/DNS1", "300.1.1.1", "reads 10.0.0.1")

    def test_settings_that_a_bearer_overwrites_are_noted(self):
        self.see_noted_at_once("replace", CONN + "/Office/Bearer", "GSM-CSD",
                               "the GSM-CSD settings that the profile had (Addr +491720000) are overwritten")

    def test_node_that_no_profile_has_is_noted_when_it_goes(self):
        self.run_command("add", CONN + "/Office/Foo", "x", "200 OK")
        self.see_noted_when_mounted_again("gone at the next mount: a profile has no such node")

    def test_profile_without_a_leaf_is_noted_when_it_goes(self):
        self.script("document.getElementById('work-format').value = 'node'")
        self.run_command("add", CONN + "/Bare", "", "200 OK", shown="Bare")
        self.see_noted_when_mounted_again("gone at the next mount: no leaf of the profile is set, and it still "
                                          "counts among the profiles that can be stored")

    def test_name_that_lasts_as_long_as_a_mount_is_noted(self):
        self.run_command("rename", CONN + "/Office", "Bureau", "200 OK")
        self.see_noted_when_mounted_again("Office again at the next mount")

    def test_profile_that_comes_back_is_noted(self):
        self.run_command("delete", CONN + "/Office", "", "200 OK", shown="Delete")
        self.see_noted_when_mounted_again("back at the next mount: another bearer or the proxies of the profile remain")

    # ---- What is stored for a node ----

    def choose_node(self, uri):
        self.click("#tab-tree")
        row = f"#tree .row[data-uri={json.dumps(uri)}]"
        self.wait_for(lambda: self.all(row))
        self.click(row)

    def see_stored(self, words):
        self.wait_for(lambda: words in self.text("#tree .stored"))

    def test_node_shows_the_record_and_the_mapping_files_as_they_are_now(self):
        self.choose_node(LINGER)
        self.see_stored("This leaf is gprsLinger, bytes 320–321: 30")
        self.assertEqual(len(self.all("#tree .map .marked[data-byte]")), 2)
        self.handset.napictl("set", "Office", "gprs.linger=77")
        self.choose_node(LINGER)
        self.see_stored("bytes 320–321: 77")
        self.click("#tree .mapping summary", "kub_proxy_profilemapping.cfg")
        self.assertIn("[PROXY_Conn] Office/Ph1 = Office", self.text("#tree .stored"))

    def test_record_behind_the_chosen_node_follows_what_is_done(self):
        self.choose_node(LINGER)
        self.see_stored("320–321: 30")
        self.run_command("replace", LINGER, "70000", "200 OK")
        self.click("#tab-tree")
        self.see_stored("320–321: 4464")
        self.assertTrue(any("200 OK ≠ reads 4464" in one for one in self.texts("#tree .history li")), self.texts("#tree .history li"))

    def test_node_that_was_deleted_is_looked_at_again(self):
        self.choose_node(LINGER)
        self.see_stored("320–321: 30")
        self.run_command("delete", CONN + "/Office", "", "200 OK", shown="Delete")
        self.click("#tab-tree")
        self.see_stored("names no profile for this node")

    def test_profile_that_went_meanwhile_is_said_to_be_gone(self):
        self.choose_node(LINGER)
        self.see_stored("320–321: 30")
        self.handset.napictl("delete", "Office")
        self.choose_node(LINGER)
        self.see_stored("is not stored any more")
        self.assertEqual(self.all("#tree .map"), [])

    def test_damaged_mapping_file_is_said_to_be_one(self):
        self.choose_node(LINGER)
        self.see_stored("320–321: 30")
        with open(self.handset.path("settings", "kub_napdef_profilemapping.cfg"), "ab") as file:
            file.write(b"\xff\xfe<b>no entry\n")
        self.choose_node(LINGER)
        self.wait_for(lambda: any(self.texts("#tree .mapping .problem")) or
                      self.script("return Boolean(document.querySelector('#tree .mapping .problem'))"))
        self.click("#tree .mapping summary", "kub_napdef_profilemapping.cfg")
        self.assertIn("kub_napdef_profilemapping.cfg", self.text("#tree .mapping .problem"))
        self.see_stored("320–321: 30")

    def test_profile_of_a_hostile_name_is_shown_as_text(self):
        name = "O'B \"$(id)\" <img src=x onerror=alert(1)>%41"
        self.handset.add([{"name": name, "gprs": {"address": "x", "linger": 5}}])
        self.press("mount")
        self.click("#tab-tree")
        self.wait_for(lambda: self.script("return [...document.querySelectorAll('#tree .row')].some((row) => row.dataset.uri.includes('onerror'))"))
        self.script("[...document.querySelectorAll('#tree .row')].find((row) => row.dataset.uri.includes('onerror') && row.dataset.uri.endsWith('Linger')).click()")
        self.see_stored(f"{name} (ID ")
        self.see_stored("320–321: 5")
        self.assertEqual(self.all("#tree img"), [])

    def test_end_of_the_command_is_said(self):
        self.explorer.end()
        self.wait_for(lambda: "has ended" in self.find("#work-problem").get_attribute("textContent"))
        self.browser.get("about:blank")  # or the page would go on asking
        self.browser.get_log("browser")


if __name__ == "__main__":
    unittest.main()

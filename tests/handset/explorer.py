"""The page of dmclient explore, asked as a browser asks it, or as somebody else does."""

import http.client
import json
import queue
import signal
import subprocess
import threading
import urllib.parse

from handset import PROGRAMS

TIME_LIMIT = 60  # seconds; guards against hanging only


class Explorer:
    """`dmclient explore` on a handset; ends with the object."""

    def __init__(self, handset, *options, **environment):
        self._process = subprocess.Popen(
            [*PROGRAMS["dmclient"], *options, "explore"], env=handset.environment(**environment),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, encoding="utf-8")
        self.url = urllib.parse.urlsplit(self._process.stdout.readline().split(" ")[0])
        self.pid = self._process.pid

    def end(self, number=signal.SIGINT):
        """Ends it; the result is its exit status and what it wrote to standard error."""
        if self._process.poll() is None:
            self._process.send_signal(number)
        _, errors = self._process.communicate(timeout=TIME_LIMIT)
        return self._process.returncode, errors

    def connection(self):
        return http.client.HTTPConnection(self.url.hostname, self.url.port, timeout=TIME_LIMIT)

    def ask(self, method, path, body=None, token=None, **headers):
        """A request; the result is its status, headers and body."""
        connection = self.connection()
        names = {name.replace("_", "-"): value for name, value in headers.items()}
        base = self.url.path if token is None else token
        connection.request(method, base + path, body, names)
        answer = connection.getresponse()
        result = answer.status, answer.headers, answer.read()
        connection.close()
        return result

    def post(self, path, **body):
        """What the page sends; the result is the status and the answer."""
        status, _, answer = self.ask("POST", path, json.dumps(body), Content_Type="application/json",
                                     Origin=f"http://{self.url.netloc}", Sec_Fetch_Site="same-origin")
        return status, json.loads(answer)

    def events(self):
        """Everything that the page is told, from the beginning."""
        return EventStream(self)


class EventStream:
    def __init__(self, explorer):
        self._connection = explorer.connection()
        self._connection.request("GET", explorer.url.path + "events")
        self._answer = self._connection.getresponse()
        assert self._answer.status == 200, self._answer.status
        self._events = queue.Queue()
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        try:
            for line in self._answer:
                if line.startswith(b"data: "):
                    self._events.put(json.loads(line[len(b"data: "):]))
        except (OSError, ValueError, http.client.HTTPException):
            pass
        self._events.put(None)

    def wait_for(self, is_wanted):
        """The events up to, and with, the first that is wanted."""
        seen = []
        while True:
            event = self._events.get(timeout=TIME_LIMIT)
            assert event is not None, f"the stream has ended after {seen}"
            seen.append(event)
            if is_wanted(event):
                return seen

    def recorded(self, name):
        """The next event of that name of the record."""
        return self.wait_for(lambda event: event.get("recorded", {}).get("event") == name)[-1]["recorded"]

    def printed(self, text):
        """The next line of the shell that has the text."""
        return self.wait_for(lambda event: text in event.get("printed", ""))[-1]["printed"]

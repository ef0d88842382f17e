"""Runs the isodata command for a Processing algorithm and relays what it says,
and reads the command's option table.

Plan: start the command with machine-readable progress on stderr and the JSON
summary on stdout; read both pipes in helper threads so neither can fill up
and stall the command; on the algorithm's own thread, turn progress lines into
feedback and poll for cancellation. Cancelling sends SIGTERM and waits: the
command then removes its private run folder and leaves the user's files as
they were.
"""
import functools
import json
import queue
import re
import subprocess
import threading

PROGRESS_LINE = re.compile(r'^progress (\d+(?:\.\d+)?) (.*)$')
ERROR_PREFIX = 'isodata: '
# How often, in seconds, a run with nothing to say checks for cancellation.
CANCEL_POLL = 0.2


class CommandError(Exception):
    """The command refused its input or failed; the message is its own."""


@functools.lru_cache(maxsize=None)
def offered_options(program):
    """The options the command at `program` offers to QGIS (those with a QGIS
    parameter name), as its --options-json describes them, in its order.
    Read once per program; raises CommandError when it cannot be read."""
    try:
        done = subprocess.run([program, '--options-json'], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=60)
        options = json.loads(done.stdout)['options'] if done.returncode == 0 else None
    except (OSError, subprocess.SubprocessError, ValueError, KeyError) as error:
        raise CommandError('{} --options-json: {}'.format(program, error))
    if options is None:
        raise CommandError('{} --options-json: {}'.format(
            program, done.stderr.strip() or 'exit status {}'.format(done.returncode)))
    return tuple(option for option in options if option.get('qgis_name'))


def _read_lines(stream, lines):
    for line in stream:
        lines.put(line.rstrip('\r\n'))
    lines.put(None)


def _read_all(stream, sink):
    sink.append(stream.read())


class _Relay:
    """Turns the command's stderr lines into feedback, one line at a time."""

    def __init__(self, feedback):
        self.feedback = feedback
        self.stage = None
        self.errors = []

    def line(self, text):
        match = PROGRESS_LINE.match(text)
        if match:
            self.feedback.setProgress(float(match.group(1)))
            label = match.group(2)
            if label != self.stage:
                self.stage = label
                self.feedback.pushInfo(label)
        elif text.startswith(ERROR_PREFIX):
            self.errors.append(text[len(ERROR_PREFIX):])
        elif text:
            self.feedback.pushConsoleInfo(text)


def _follow(process, feedback):
    """Relays stderr until it closes; returns the relay, or None when the user
    cancelled, in which case the command has been stopped."""
    lines = queue.Queue()
    threading.Thread(target=_read_lines, args=(process.stderr, lines), daemon=True).start()
    relay = _Relay(feedback)
    while True:
        if feedback.isCanceled():
            process.terminate()
            process.wait()
            return None
        try:
            text = lines.get(timeout=CANCEL_POLL)
        except queue.Empty:
            continue
        if text is None:
            return relay
        relay.line(text)


def run(arguments, feedback):
    """Runs the command line `arguments` (program first) to its end.

    Returns the parsed JSON summary, or None when the user cancelled; raises
    CommandError when the command failed."""
    stdout = []
    with subprocess.Popen(arguments, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, encoding='utf-8', errors='replace') as process:
        reader = threading.Thread(target=_read_all, args=(process.stdout, stdout), daemon=True)
        reader.start()
        relay = _follow(process, feedback)
        status = process.wait()
        reader.join()
    if relay is None:
        return None
    if status != 0:
        raise CommandError('\n'.join(relay.errors) or 'exit status {}'.format(status))
    try:
        return json.loads(stdout[0])
    except ValueError as error:
        raise CommandError('no summary on standard output ({})'.format(error))

"""Runs the isodata command for a Processing algorithm and relays what it says,
and reads the command's option table.

Plan: start the command with machine-readable progress on stderr and the JSON
summary on stdout; read both pipes in helper threads so neither can fill up
and stall the command; on the algorithm's own thread, turn progress lines into
feedback and poll for cancellation. Cancelling sends SIGTERM and waits: the
command then removes its private run folder and leaves the user's files as
they were; if it had already finished (exit status 0), its output is complete
and the run stands. A failed command's last "isodata: ..." line is its message, raised
once and never also pushed as feedback; its warnings go to feedback as
warnings.
"""
import functools
import json
import queue
import re
import subprocess
import threading

PROGRESS_LINE = re.compile(r'^progress (\d+(?:\.\d+)?) (.*)$')
ERROR_PREFIX = 'isodata: '
WARNING_PREFIX = 'isodata: warning: '
# How often, in seconds, a run with nothing to say checks for cancellation.
CANCEL_POLL = 0.2


class CommandError(Exception):
    """The command refused its input or failed; the message is its own."""


@functools.lru_cache(maxsize=None)
def _options_json(program):
    """The command's --options-json, read once per program; raises
    CommandError when it cannot be read."""
    try:
        done = subprocess.run([program, '--options-json'], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=60)
        table = json.loads(done.stdout) if done.returncode == 0 else None
    except (OSError, subprocess.SubprocessError, ValueError) as error:
        raise CommandError('{} --options-json: {}'.format(program, error))
    if not isinstance(table, dict) or 'options' not in table:
        raise CommandError('{} --options-json: {}'.format(
            program, done.stderr.strip() or 'no option table (exit status {})'.format(done.returncode)))
    return table


def offered_options(program):
    """The options the command at `program` offers to QGIS (those with a QGIS
    parameter name), as its --options-json describes them, in its order."""
    return tuple(option for option in _options_json(program)['options'] if option.get('qgis_name'))


def output_formats(program):
    """The GDAL formats the command writes the classes to exactly, each with
    its file extensions: ({'name': 'GTiff', 'extensions': ['tif', 'tiff']}, ...)."""
    return tuple(_options_json(program).get('output_formats', ()))


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
        # The latest "isodata: ..." line: the failure message if the command
        # fails, a notice (a stale run folder removed) if more follow.
        self.last_said = None

    def line(self, text):
        match = PROGRESS_LINE.match(text)
        if match:
            self.feedback.setProgress(float(match.group(1)))
            label = match.group(2)
            if label != self.stage:
                self.stage = label
                self.feedback.pushInfo(label)
        elif text.startswith(WARNING_PREFIX):
            self.feedback.pushWarning(text[len(WARNING_PREFIX):])
        elif text.startswith(ERROR_PREFIX):
            self.said_before()
            self.last_said = text
        elif text:
            self.feedback.pushConsoleInfo(text)

    def said_before(self):
        """Pushes the latest "isodata: ..." line as a notice: it was no failure."""
        if self.last_said is not None:
            self.feedback.pushInfo(self.last_said[len(ERROR_PREFIX):])
        self.last_said = None


def _follow(process, feedback):
    """Relays stderr until it closes, or stops the command with SIGTERM when
    the user cancels; returns the relay and whether the command was stopped."""
    lines = queue.Queue()
    threading.Thread(target=_read_lines, args=(process.stderr, lines), daemon=True).start()
    relay = _Relay(feedback)
    while True:
        if feedback.isCanceled():
            process.terminate()
            process.wait()
            return relay, True
        try:
            text = lines.get(timeout=CANCEL_POLL)
        except queue.Empty:
            continue
        if text is None:
            return relay, False
        relay.line(text)


def run(arguments, feedback):
    """Runs the command line `arguments` (program first) to its end.

    Returns the parsed JSON summary, or None when the user cancelled and the
    command stopped; raises CommandError when the command failed."""
    stdout = []
    with subprocess.Popen(arguments, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, encoding='utf-8', errors='replace') as process:
        reader = threading.Thread(target=_read_all, args=(process.stdout, stdout), daemon=True)
        reader.start()
        relay, stopped = _follow(process, feedback)
        status = process.wait()
        reader.join()
    if stopped and status != 0:
        return None
    if stopped:
        # It had finished before the signal came: its output is there and
        # complete, so the run counts as done.
        feedback.pushInfo('isodata had finished before it could be cancelled.')
    if status != 0:
        raise CommandError(relay.last_said or 'isodata exited with status {}'.format(status))
    relay.said_before()
    try:
        return json.loads(stdout[0])
    except ValueError as error:
        raise CommandError('no summary on standard output ({})'.format(error))

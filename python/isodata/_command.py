"""Runs the command's words in this process, through the run library: the
same checks, run folder, child process and publish step as ``isodata``, and
its ``-json`` summary back as a dict.

Progress and messages come through a pipe (the run's child process writes
there too) and are read by a helper thread while the run holds no GIL.
"""
import json
import os
import re
import sys
import threading
import warnings

from . import _isodata, _options
from ._errors import Error, PreviewWarning, RequestError, RunError, RunWarning

_EXIT_BAD_REQUEST = 1
_EXIT_PREVIEW_FAILED = 3
_PREFIX = "isodata: "


def _in_notebook():
    return "ipykernel" in sys.modules


class _Bar:
    """A tqdm bar of the whole run, in percent, named after the stage."""

    def __init__(self):
        from tqdm.auto import tqdm  # optional: without tqdm there is no bar

        self._bar = tqdm(total=100, unit="%", bar_format="{desc}: {percentage:3.0f}%|{bar}| {elapsed}", leave=False)

    def __call__(self, overall, stage):
        self._bar.set_description_str(stage, refresh=False)
        self._bar.n = overall
        self._bar.refresh()

    def close(self):
        self._bar.close()


def _reporter(progress):
    """progress: None (a bar where a person watches, when tqdm is there),
    False (none), True (a bar) or a callable taking (overall percent, stage)."""
    if progress is None:
        progress = sys.stderr is not None and (_in_notebook() or sys.stderr.isatty())
        if progress:
            try:
                return _Bar()
            except ImportError:
                return None
        return None
    if progress is True:
        return _Bar()
    if progress is False:
        return None
    if not callable(progress):
        raise TypeError("progress must be None, True, False or a callable taking (percent, stage)")
    return progress


class _Messages:
    """Reads the run's lines: progress to the reporter, the rest kept."""

    def __init__(self, fd, reporter):
        self.lines = []
        self._fd = fd
        self._reporter = reporter
        self._failure = None
        self._thread = threading.Thread(target=self._read, name="isodata-progress", daemon=True)
        self._thread.start()

    def _read(self):
        with os.fdopen(self._fd, "r", encoding="utf-8", errors="replace") as stream:
            for line in stream:
                line = line.rstrip("\n")
                if line.startswith("progress ") and self._reporter is not None:
                    _, overall, stage = (line.split(" ", 2) + [""])[:3]
                    try:
                        self._reporter(float(overall), stage)
                    except BaseException as failure:  # raised again in the caller's thread
                        self._failure = failure
                        self._reporter = None
                elif not line.startswith("progress "):
                    self.lines.append(line[len(_PREFIX):] if line.startswith(_PREFIX) else line)

    def join(self):
        self._thread.join()
        if isinstance(self._reporter, _Bar):
            self._reporter.close()
        if self._failure is not None:
            raise self._failure


# The command's spelling of an option in a message, and the package's.
_PYTHON_NAMES = {}
for _keyword, _row in _options.ROWS.items():
    for _name in _row["names"]:
        _PYTHON_NAMES[_name] = _keyword + ("=True" if _row["type"] == "flag" else "")
_SPELLING = re.compile(r"(?<![\w/.-])(" + "|".join(sorted(map(re.escape, _PYTHON_NAMES), key=len, reverse=True))
                       + r")(?![\w-])")


def run(words, progress=None, names=None):
    """Runs ``isodata <words> -json`` and returns its summary as a dict.

    names maps in-memory file names to what the person calls them, for
    messages ("the array" rather than a virtual path).
    """
    reporter = _reporter(progress)
    words = list(words)
    words += ["-json"] + (["-progress-format", "machine"] if reporter is not None else ["-q"])
    if "--plugin" not in words:
        words = ["--plugin", _isodata.plugin_path()] + words
    read_end, write_end = os.pipe()
    messages = _Messages(read_end, reporter)
    try:
        status, out = _isodata.run_command(words, write_end)
    finally:
        os.close(write_end)
        messages.join()

    def readable(text):
        for name, shown in (names or {}).items():
            text = text.replace(f"'{name}'", shown).replace(name, shown)
        return _SPELLING.sub(lambda m: _PYTHON_NAMES[m.group(1)], text)

    summary = json.loads(out) if out.strip() else {}
    if status == 130:
        raise KeyboardInterrupt("isodata: the run was interrupted; no file was changed")
    if status not in (0, _EXIT_PREVIEW_FAILED):
        message = summary.get("error") or (messages.lines[-1] if messages.lines else f"the run ended with status {status}")
        kind = RequestError if status == _EXIT_BAD_REQUEST else RunError if status < 128 else Error
        raise kind(readable(message))
    for line in messages.lines:
        if line.startswith("warning: "):
            warnings.warn(readable(line[len("warning: "):]), RunWarning, stacklevel=3)
        elif status == _EXIT_PREVIEW_FAILED:
            warnings.warn(readable(line), PreviewWarning, stacklevel=3)
    return summary

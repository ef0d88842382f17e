"""The command's option table as the package reads it.

Names, defaults and ranges are the command's: the extension hands over the
table the command prints with ``--options-json``, so that no default is
written twice.
"""
import json

from . import _isodata

_TABLE = json.loads(_isodata.options_json())

#: Rows offered in Python, by their Python keyword.
ROWS = {row["python_name"]: row for row in _TABLE["options"] if row.get("python_name")}

#: Rows by the command's -json key (the names a model file's parameters use).
BY_JSON_KEY = {row["json_key"]: row for row in ROWS.values() if row.get("json_key")}

#: Output formats the command writes exactly.
OUTPUT_FORMATS = [f["name"] for f in _TABLE["output_formats"]]


def default(keyword):
    """The command's default for a Python keyword; None where the run decides."""
    value = ROWS[keyword]["default"]
    return None if value == [] else value


def words(settings):
    """The command's words for settings ({python keyword: value}); None and
    False leave an option out, a list repeats a repeatable one."""
    out = []
    for keyword, value in settings.items():
        if value is None or value is False:
            continue
        row = ROWS.get(keyword)
        if row is None:
            raise TypeError(f"unexpected keyword argument {keyword!r}")
        name = row["names"][0]
        if row["type"] == "flag":
            out.append(name)
        elif row["repeatable"]:
            for item in value if isinstance(value, (list, tuple)) else [value]:
                out += [name, _word(item)]
        elif isinstance(value, (list, tuple)):  # several values in one word ("0 0 255")
            out += [name, " ".join(_word(v) for v in value)]
        else:
            out += [name, _word(value)]
    return out


def _word(value):
    if isinstance(value, bool):
        return str(int(value))
    if isinstance(value, float):
        return repr(value)
    return str(value)

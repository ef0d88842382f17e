"""The HTML report: one page that a real browser opens offline with every
chart drawn, no console message and no request of its own to the network;
published with the result or not at all; the same page from Python."""
import os
import re
import shutil
import subprocess
from urllib.parse import urlsplit

import numpy as np
import pytest

import isodata
from conftest import COMMAND, command, write_tif

BROWSER = shutil.which("chromium") or shutil.which("chromium-browser")
# Quiet the browser's own background traffic; what is left of it is
# subtracted by comparing with an empty page.
FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-background-networking",
         "--disable-component-update", "--disable-sync", "--disable-default-apps", "--no-first-run",
         "--disable-breakpad", "--proxy-server=127.0.0.1:9", "--enable-logging=stderr", "--v=0",
         "--virtual-time-budget=5000"]


def open_in_browser(page, folder):
    """(the DOM after the page's scripts ran, its console lines, the hosts
    and paths it asked the network for)."""
    if not BROWSER:
        pytest.skip("no chromium to open the page in (scripts/setup.sh installs Debian's)")
    log = os.path.join(folder, f"{os.path.basename(page)}.net.json")
    done = subprocess.run([BROWSER, *FLAGS, f"--log-net-log={log}", "--dump-dom", f"file://{page}"],
                          capture_output=True, text=True, timeout=120)
    console = [line for line in done.stderr.splitlines() if ":CONSOLE" in line]
    with open(log, encoding="utf-8", errors="replace") as f:
        urls = {urlsplit(u)._replace(query="").geturl() for u in re.findall(r'"url":"([^"]+)"', f.read())}
    return done.stdout, console, {u for u in urls if not u.startswith(("file:", "data:"))}


def test_the_report_opens_offline_in_a_browser_with_every_chart_and_no_error(sample_path, tmp_path):
    _, summary = command("-report", tmp_path / "run.html", sample_path, tmp_path / "c.img")
    (tmp_path / "empty.html").write_text("<!DOCTYPE html><title>empty</title>")
    dom, console, asked = open_in_browser(str(tmp_path / "run.html"), str(tmp_path))
    _, _, background = open_in_browser(str(tmp_path / "empty.html"), str(tmp_path))
    assert console == []
    assert asked - background == set()
    assert 'data-charts-drawn="3"' in dom
    # What the charts say is in the page as text too: the legend, the values, every iteration.
    for c in summary["classes"]:
        assert f"<td>{c['value']}</td><td>{c['name']}</td><td class=\"num\">{c['pixels']}</td>" in dom
    assert dom.count("<tr><td>") >= len(summary["iterations"])
    assert 'class="heat"' in dom and "Jeffries-Matusita distance" in dom
    assert re.search(r'<img class="map" src="data:image/png;base64,[A-Za-z0-9+/=]{100,}" alt="[^"]+"', dom)
    assert all('aria-label="' in chart for chart in re.findall(r"<canvas[^>]*>", dom))


def test_a_report_of_apply_has_no_convergence_and_a_failed_run_publishes_none(sample_path, tmp_path):
    command("-model-out", tmp_path / "m.json", sample_path, tmp_path / "c.img")
    command("-apply", tmp_path / "m.json", "-report", tmp_path / "applied.html", sample_path, tmp_path / "a.img")
    page = (tmp_path / "applied.html").read_text()
    assert "there were no iterations" in page and 'id="convergence-chart"' not in page
    dom, console, _ = open_in_browser(str(tmp_path / "applied.html"), str(tmp_path))
    assert console == [] and 'data-charts-drawn="2"' in dom

    # A run that finds nothing to classify publishes neither result nor page.
    write_tif(tmp_path / "zeros.tif", np.zeros((1, 352, 349), np.uint8))
    before = sorted(os.listdir(tmp_path))
    status, failure = command("-mask", tmp_path / "zeros.tif", "-report", tmp_path / "none.html", sample_path,
                              tmp_path / "none.img", check=False)
    assert status == 1 and "left out" in failure["error"]
    assert sorted(os.listdir(tmp_path)) == before
    status, failure = command("-report", tmp_path / "m.json", sample_path, tmp_path / "x.img", check=False)
    assert status == 1 and "already exists" in failure["error"]
    # Without the chart library the page embeds, a report is refused before anything runs.
    done = subprocess.run([COMMAND, "-report", tmp_path / "y.html", sample_path, tmp_path / "y.img"],
                          env=dict(os.environ, ISODATA_CHART_JS=str(tmp_path / "none.js")), capture_output=True,
                          text=True)
    assert done.returncode == 1 and "-report needs the chart library" in done.stderr
    assert sorted(os.listdir(tmp_path)) == before


def test_a_fit_writes_the_commands_page_and_shows_it_in_a_notebook(sample, tmp_path):
    fitted = isodata.ISODATA().fit(sample, progress=False)
    fitted.report(tmp_path / "fit.html")
    page = (tmp_path / "fit.html").read_text()
    assert 'id="signature-chart"' in page and "Jeffries-Matusita distance" in page
    assert "<title>Classes of the array</title>" in page and "/vsimem" not in page
    shown = fitted._repr_html_()
    assert shown.count("<tr>") == fitted.n_classes_ + 1 and "<iframe" in shown and "srcdoc=" in shown
    da = pytest.importorskip("dask.array")
    lazy = isodata.ISODATA().fit(da.from_array(sample, chunks=(6, 200, 200)), progress=False)
    with pytest.raises(isodata.RequestError, match="no report"):
        lazy.report(tmp_path / "lazy.html")

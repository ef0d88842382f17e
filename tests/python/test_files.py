"""Runs on files are the command's runs: the same bytes and summary, its
refusals as exceptions, its progress in Python, and Ctrl-C ends a run with
nothing changed."""
import os
import signal
import subprocess
import sys
import textwrap

import pytest

import isodata
from conftest import command, without_times


def test_classify_and_apply_give_the_commands_bytes_and_summary(sample_path, tmp_path):
    _, expected = command("-classes", 6, "-of", "GTiff", "-model-out", tmp_path / "c.json", sample_path,
                          tmp_path / "c.tif")
    seen = []
    got = isodata.classify(sample_path, tmp_path / "p.tif", n_classes=6, format="GTiff",
                           model_out=tmp_path / "p.json", progress=lambda overall, stage: seen.append(overall))
    assert (tmp_path / "p.tif").read_bytes() == (tmp_path / "c.tif").read_bytes()
    for summary in (got, expected):
        summary["parameters"].pop("model-out")
        summary.pop("model")
    assert without_times(got) == without_times(expected)
    assert seen[-1] == 100.0 and len(seen) > 20

    _, applied = command("-apply", tmp_path / "c.json", sample_path, tmp_path / "ca.img")
    got = isodata.apply(tmp_path / "c.json", sample_path, tmp_path / "pa.img", progress=False)
    assert (tmp_path / "pa.img").read_bytes() == (tmp_path / "ca.img").read_bytes()
    assert got["classes"] == applied["classes"]


def test_a_refused_run_raises_with_the_commands_message_and_changes_nothing(sample_path, tmp_path):
    (tmp_path / "taken.img").write_bytes(b"mine")
    with pytest.raises(isodata.RequestError, match="already exists .use overwrite=True to replace it."):
        isodata.classify(sample_path, tmp_path / "taken.img", progress=False)
    with pytest.raises(isodata.RequestError, match="cannot go with"):
        isodata.apply(tmp_path / "none.json", sample_path, tmp_path / "x.img", n_classes=5, progress=False)
    assert sorted(os.listdir(tmp_path)) == ["taken.img"]
    assert (tmp_path / "taken.img").read_bytes() == b"mine"


def test_ctrl_c_ends_a_run_with_nothing_changed(sample_path, tmp_path):
    # A scene large enough to be interrupted while it runs.
    from osgeo import gdal

    big = tmp_path / "big.tif"
    gdal.Translate(str(big), sample_path, width=3000, height=3000, resampleAlg="bilinear")
    script = textwrap.dedent(f"""
        import sys, isodata
        def told(overall, stage):
            if overall > 12:
                print("running", flush=True)
        try:
            isodata.classify({str(big)!r}, {str(tmp_path / "out.img")!r}, threads=1, mem=0, progress=told)
        except KeyboardInterrupt:
            print("interrupted", flush=True)
            sys.exit(5)
    """)
    child = subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE, text=True,
                             env=dict(os.environ))
    assert child.stdout.readline().strip() == "running"
    child.send_signal(signal.SIGINT)
    out, _ = child.communicate(timeout=60)
    assert child.returncode == 5 and "interrupted" in out
    assert sorted(os.listdir(tmp_path)) == ["big.tif"]


@pytest.mark.parametrize("words", [[], ["-classes", 4, "-initial", 9, "-merge-dist", 60, "-min-size", 3000],
                                   ["-classes", 12, "-initial", 2, "-std", 3, "-iter", 7]])
def test_the_rounds_recorded_account_for_every_cluster(sample_path, tmp_path, words):
    _, summary = command(*words, sample_path, tmp_path / "c.img")
    rounds = summary["iterations"]
    parameters = summary["parameters"]
    assert 1 <= len([r for r in rounds if r["iteration"]]) <= parameters["iter"]
    clusters = parameters["initial"]
    for number, r in enumerate(rounds, start=1):
        assert r["iteration"] in (number, None)
        # A split adds one cluster, each merged pair takes one, dropped clusters go.
        clusters += -r["removed"] + (r["split"] is not None) - len(r["merged"])
        assert r["classes"] == clusters
        assert r["step"] == ("split" if r["split"] else "merge" if r["merged"] else
                             "removed" if r["removed"] else "none")
        assert (r["mean_distance"] is None) == (r["iteration"] is None)
    assert clusters == len([c for c in summary["classes"] if c["pixels"] > 0])
    assert any(r["step"] != "none" for r in rounds)
    # A model applied has no rounds.
    command("-model-out", tmp_path / "m.json", "-overwrite", sample_path, tmp_path / "c.img")
    _, again = command("-apply", tmp_path / "m.json", "-overwrite", sample_path, tmp_path / "c.img")
    assert again["iterations"] == []

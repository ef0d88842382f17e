"""Times the Python package against the command on the same pixels.

    PYTHONPATH=build/python python3 bench/python.py [size ...]

For each size (default 8000) it uses the bench's enlarged sample scene
(build/bench/workloads/L7_<size>.tif, made by bench/run.sh or here) and
prints medians of BENCH_REPEATS runs (default 3):

- apply:      ``isodata -apply model.json scene.tif out.img`` (the command);
- predict:    ``model.predict(array)`` on the same pixels held in memory;
- dask 1 / 2: ``model.predict(chunked scene).compute()`` on a LocalCluster
  of 1 or 2 worker processes (one thread each), chunks of 2048 x 2048
  read from the file by the workers.
"""
import os
import statistics
import subprocess
import sys
import tempfile
import time

import numpy as np
from osgeo import gdal

import isodata

here = os.path.dirname(os.path.abspath(__file__))
build = os.environ.get("BUILD_DIR", os.path.join(here, "..", "build"))
command = os.path.join(build, "bin", "isodata")
scene = os.path.join(here, "..", "data", "L7_ETMs.tif")
repeats = int(os.environ.get("BENCH_REPEATS", "3"))


def workload(size):
    folder = os.path.join(build, "bench", "workloads")
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, f"L7_{size}.tif")
    if not os.path.exists(path):
        gdal.Translate(path + ".part.tif", scene, width=size, height=size, resampleAlg="bilinear",
                       creationOptions=["COMPRESS=NONE"])
        os.rename(path + ".part.tif", path)
    return path


def timed(fn):
    times = []
    for _ in range(repeats):
        start = time.perf_counter()
        fn()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def main(sizes):
    from distributed import Client, LocalCluster
    import rioxarray

    print(f"| size | -apply (command) | predict (numpy) | predict/apply | dask, 1 worker | dask, 2 workers | 1/2 |")
    print("|---|---|---|---|---|---|---|")
    with tempfile.TemporaryDirectory() as tmp:
        model_path = os.path.join(tmp, "model.json")
        subprocess.run([command, "-q", "-model-out", model_path, scene, os.path.join(tmp, "fit.img")], check=True)
        model = isodata.load(model_path)
        for size in sizes:
            path = workload(size)
            out = os.path.join(tmp, "out.img")
            apply = timed(lambda: subprocess.run([command, "-q", "-overwrite", "-apply", model_path, path, out],
                                                 check=True))
            pixels = gdal.Open(path).ReadAsArray()
            predict = timed(lambda: model.predict(pixels, progress=False))
            expected = np.fromfile(out, dtype=np.uint8).reshape(pixels.shape[1:])
            del pixels
            dask = []
            for workers in (1, 2):
                with LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, host="127.0.0.1",
                                  dashboard_address=None) as cluster, Client(cluster):
                    chunked = rioxarray.open_rasterio(path, chunks={"band": -1, "x": 2048, "y": 2048}, lock=False)
                    labels = None

                    def run():
                        nonlocal labels
                        labels = model.predict(chunked).values

                    dask.append(timed(run))
                    assert labels.tobytes() == expected.tobytes(), "the cluster's labels differ from -apply"
            print(f"| {size}² | {apply:.2f} s | {predict:.2f} s | {predict / apply:.2f} | {dask[0]:.2f} s | "
                  f"{dask[1]:.2f} s | {dask[0] / dask[1]:.2f} |")


if __name__ == "__main__":
    main([int(s) for s in sys.argv[1:]] or [8000])

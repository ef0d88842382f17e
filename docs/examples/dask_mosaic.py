"""Classify a mosaic on a Dask cluster: fit once on the whole mosaic (lazily,
from its working copy's pixels), label it chunk by chunk on the workers, and
write the class raster with rioxarray under a lock.

    python3 dask_mosaic.py mosaic.vrt classes.tif [scheduler-address]

Without a scheduler address a LocalCluster of two worker processes is
started on this machine.
"""
import sys

import isodata
import rioxarray
from distributed import Client, LocalCluster, Lock


def main(mosaic, output, address=None):
    cluster = None if address else LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                                host="127.0.0.1", dashboard_address=None)
    with Client(address or cluster) as client:
        # Chunks of whole bands; each task opens the mosaic by its path.
        scene = rioxarray.open_rasterio(mosaic, chunks={"band": -1, "x": 2048, "y": 2048}, lock=False)
        model = isodata.ISODATA(n_classes=8).fit(scene)    # the working copy is gathered, the rest stays lazy
        model.save(output + ".json")                       # for isodata -apply and isodata.load later
        labels = model.predict(scene)                      # lazy, one task a chunk, one thread a task
        labels.rio.to_raster(output, tiled=True, compress="DEFLATE", lock=Lock("isodata-write", client=client))
        print(f"{model.n_classes_} classes; {int(model.class_pixels_.sum())} pixels classified; "
              f"{len(client.scheduler_info()['workers'])} workers")
    if cluster:
        cluster.close()


if __name__ == "__main__":
    main(*sys.argv[1:])

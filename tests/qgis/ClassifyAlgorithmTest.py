"""isodata:classify in real QGIS: installed into a throwaway profile with the
project's install script, run headless through qgis_process, its raster must
equal the one the isodata command writes itself for the same non-default
parameters (which QGIS knows only from the command's option table), and so
must isodata:apply with the model the command wrote; and a run
cancelled midway must leave nothing in the output folder.

Plan: make a throwaway HOME and install the plug-in into its default profile;
classify a copy of the sample scene once with the command and once through
qgis_process (command found on PATH); compare
pixels, colour table, category names and georeferencing with GDAL; then start
QGIS in this process, point the provider's setting at the command, cancel a
long run at its first progress report, let a run fail and see its message
reach the feedback once, as the command wrote it, and see that the output
offers only formats that hold the classes exactly.

Usage: ClassifyAlgorithmTest.py <isodata binary> <source folder>
Exit status 77 (skipped) when QGIS or its Python bindings are missing.
"""
import os
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
# Where the install script puts the plug-in by default, under HOME.
PROFILE = os.path.join('.local', 'share', 'QGIS', 'QGIS3', 'profiles', 'default')


def skip(reason):
    print('skipped: ' + reason)
    sys.exit(SKIPPED)


def check(condition, message):
    if not condition:
        raise AssertionError(message)


def describe(path):
    """What must agree between two class rasters, read back with GDAL."""
    from osgeo import gdal
    dataset = gdal.Open(path)
    check(dataset is not None, 'GDAL cannot open ' + path)
    band = dataset.GetRasterBand(1)
    table = band.GetColorTable()
    return {
        'size': (dataset.RasterXSize, dataset.RasterYSize, dataset.RasterCount),
        'pixels': band.ReadRaster(),
        'colours': [table.GetColorEntry(i) for i in range(table.GetCount())] if table else None,
        'names': band.GetCategoryNames(),
        'geotransform': dataset.GetGeoTransform(),
        'crs': dataset.GetSpatialRef().ExportToWkt() if dataset.GetSpatialRef() else None,
    }


def check_qgis_process_matches_command(isodata, scene, work, env):
    reference = os.path.join(work, 'command', 'classes.tif')
    os.makedirs(os.path.dirname(reference))
    model = os.path.join(work, 'command', 'model.json')
    subprocess.run([isodata, '-q', '-of', 'GTiff', '-classes', '6', '-b', '1', '-b', '2', '-b', '4',
                    '-model-out', model, scene, reference], check=True)

    output = os.path.join(work, 'qgis', 'classes.tif')
    os.makedirs(os.path.dirname(output))
    # Debian's qgis_process wrapper adds an option that 3.22's run refuses.
    run = subprocess.run(['qgis_process.bin', 'run', 'isodata:classify', '--', 'INPUT=' + scene,
                          'CLASSES=6', 'BANDS=1', 'BANDS=2', 'BANDS=4', 'OUTPUT=' + output],
                         env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    print(run.stdout)
    check(run.returncode == 0, 'qgis_process exited with {}'.format(run.returncode))
    # The stage texts reach the Processing log.
    check('Generating result file' in run.stdout, 'no stage text in the log')

    expected, actual = describe(reference), describe(output)
    check(len(expected['names']) == 7 and expected['names'][0] == 'Unclassified',
          'the command wrote {} category names'.format(len(expected['names'])))
    for key in expected:
        check(actual[key] == expected[key], 'qgis_process result differs in ' + key)
    print('qgis_process result equals the command\'s: pixels, colours, names, georeferencing')

    # The command's model applied through isodata:apply labels the scene as the run did.
    applied = os.path.join(work, 'qgis', 'applied.tif')
    run = subprocess.run(['qgis_process.bin', 'run', 'isodata:apply', '--', 'INPUT=' + scene,
                          'MODEL=' + model, 'OUTPUT=' + applied],
                         env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    check(run.returncode == 0, 'isodata:apply exited with {}:\n{}'.format(run.returncode, run.stdout))
    check(describe(applied)['pixels'] == expected['pixels'], 'isodata:apply labels differ from the run')
    print('isodata:apply gives the run\'s pixels')


def check_cancel_leaves_nothing(isodata, scene, home, work):
    os.environ['HOME'] = home
    from qgis.core import QgsApplication, QgsProcessingContext, QgsProcessingFeedback
    app = QgsApplication([], False)
    app.initQgis()
    sys.path.append(os.path.join(QgsApplication.pkgDataPath(), 'python', 'plugins'))
    from processing.core.Processing import Processing
    from processing.core.ProcessingConfig import ProcessingConfig
    Processing.initialize()
    sys.path.insert(0, os.path.join(home, PROFILE, 'python', 'plugins'))
    import isodata_processing
    plugin = isodata_processing.classFactory(None)
    plugin.initProcessing()
    ProcessingConfig.setSettingValue('ISODATA_EXECUTABLE', isodata)

    folder = os.path.join(work, 'cancelled')
    os.makedirs(folder)
    # Far more iterations than a cancel needs: with no split (huge -std), no
    # merge (-merge-dist 0) and more classes wanted than centres, nothing
    # ends the loop early.
    parameters = {'INPUT': scene, 'CLASSES': 200, 'ITERATIONS': 1000, 'STD': 1e6,
                  'MERGE_DIST': 0, 'OUTPUT': os.path.join(folder, 'classes.tif')}
    algorithm = QgsApplication.processingRegistry().createAlgorithmById('isodata:classify')
    # Cancelled at its first progress report.
    feedback, reports = QgsProcessingFeedback(), []
    feedback.progressChanged.connect(lambda percent: (reports.append(percent), feedback.cancel()))
    results, _ = algorithm.run(parameters, QgsProcessingContext(), feedback)
    check_failure_and_formats(algorithm, scene, folder)
    plugin.unload()
    app.exitQgis()

    check(len(reports) >= 1, 'the run reported no progress before it ended')
    check('OUTPUT' not in results, 'a cancelled run returned an output')
    check(os.listdir(folder) == [], 'a cancelled run left {}'.format(os.listdir(folder)))
    print('cancelled at {:.1f}%, output folder empty'.format(reports[0]))


def check_failure_and_formats(algorithm, scene, folder):
    from qgis.core import QgsProcessingContext, QgsProcessingFeedback

    class Recorder(QgsProcessingFeedback):
        said = []

        def reportError(self, text, fatal=False):  # noqa: N802 (QGIS's name)
            self.said.append(text)

        def pushInfo(self, text):  # noqa: N802
            self.said.append(text)

        def pushWarning(self, text):  # noqa: N802
            self.said.append(text)

        def pushConsoleInfo(self, text):  # noqa: N802
            self.said.append(text)

    feedback = Recorder()
    algorithm.run({'INPUT': scene, 'BANDS': [9], 'OUTPUT': os.path.join(folder, 'c.tif')},
                  QgsProcessingContext(), feedback)
    message = "isodata: -b 9: input '{}' has only 6 bands".format(scene)
    check([m for m in feedback.said if 'only 6 bands' in m] == [message],
          'the failure reached the feedback as {}'.format(feedback.said))
    offered = algorithm.parameterDefinition('OUTPUT').supportedOutputRasterLayerExtensions()
    check('tif' in offered and not {'jpg', 'vrt', 'webp'} & set(offered), 'the output offers {}'.format(offered))
    print('a failure is reported once, as the command said it; output types offered: ' + ' '.join(offered))


def main():
    isodata, source = sys.argv[1], sys.argv[2]
    if shutil.which('qgis_process.bin') is None:
        skip('qgis_process.bin is not installed (Debian package qgis)')
    try:
        import qgis.core  # noqa: F401
        from osgeo import gdal  # noqa: F401
    except ImportError as error:
        skip('{} lacks the QGIS Python bindings (python3-qgis): {}'.format(sys.executable, error))

    with tempfile.TemporaryDirectory(prefix='isodata-qgis-') as work:
        home = os.path.join(work, 'home')
        os.makedirs(home)
        env = {k: v for k, v in os.environ.items() if not k.startswith(('XDG_', 'QGIS_'))}
        env.update(HOME=home, QT_QPA_PLATFORM='offscreen',
                   PATH=os.path.dirname(isodata) + os.pathsep + env.get('PATH', ''))
        subprocess.run(['bash', os.path.join(source, 'scripts', 'install-qgis-plugin.sh')],
                       env=env, check=True)
        # A copy, so that nothing of a run lands beside the shared scene.
        scene = os.path.join(work, 'scene', 'L7_ETMs.tif')
        os.makedirs(os.path.dirname(scene))
        shutil.copy(os.path.join(source, 'data', 'L7_ETMs.tif'), scene)

        check_qgis_process_matches_command(isodata, scene, work, env)
        check_cancel_leaves_nothing(isodata, scene, home, work)


if __name__ == '__main__':
    main()

"""isodata:classify and isodata:apply in real QGIS: installed into a
throwaway profile with the project's install script, run headless through
qgis_process, classify's raster must equal the one the isodata command
writes itself for the same non-default parameters (which QGIS knows only from
the command's option table), and so must apply's with the model the command
wrote. Both algorithms must guard a run alike, and a run of either cancelled
midway must leave nothing in the output folder.

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


def folder(*parts):
    """A new folder at the path parts join to."""
    path = os.path.join(*parts)
    os.makedirs(path)
    return path


def algorithm(name):
    from qgis.core import QgsApplication
    return QgsApplication.processingRegistry().createAlgorithmById('isodata:' + name)


def qgis_process(env, name, *parameters):
    """isodata:<name> through qgis_process, its log on stdout."""
    # Debian's qgis_process wrapper adds an option that 3.22's run refuses.
    return subprocess.run(['qgis_process.bin', 'run', 'isodata:' + name, '--'] + list(parameters),
                          env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


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
    reference = os.path.join(folder(work, 'command'), 'classes.tif')
    model = os.path.join(work, 'command', 'model.json')
    subprocess.run([isodata, '-q', '-of', 'GTiff', '-classes', '6', '-b', '1', '-b', '2', '-b', '4',
                    '-model-out', model, scene, reference], check=True)

    output = os.path.join(folder(work, 'qgis'), 'classes.tif')
    run = qgis_process(env, 'classify', 'INPUT=' + scene, 'CLASSES=6', 'BANDS=1', 'BANDS=2', 'BANDS=4',
                       'OUTPUT=' + output)
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
    report = os.path.join(work, 'qgis', 'applied.html')
    run = qgis_process(env, 'apply', 'INPUT=' + scene, 'MODEL=' + model, 'OUTPUT=' + applied, 'REPORT=' + report)
    check(run.returncode == 0, 'isodata:apply exited with {}:\n{}'.format(run.returncode, run.stdout))
    check(describe(applied)['pixels'] == expected['pixels'], 'isodata:apply labels differ from the run')
    with open(report, encoding='utf-8') as page:
        check('id="signature-chart"' in page.read(), 'isodata:apply wrote no report page')
    check('REPORT:' in run.stdout and report in run.stdout, 'the report is not among the results')
    print('isodata:apply gives the run\'s pixels and its HTML report')
    return model


def recording_feedback():
    """A Processing feedback that keeps what the algorithm says (said) and
    the command lines it shows (commands)."""
    from qgis.core import QgsProcessingFeedback

    class Recorder(QgsProcessingFeedback):
        def __init__(self):
            super().__init__()
            self.said, self.commands = [], []

        def say(self, text, *fatal):
            self.said.append(text)
        reportError = pushInfo = pushWarning = pushConsoleInfo = say  # noqa: N815 (QGIS's names)

        def pushCommandInfo(self, text):  # noqa: N802
            self.commands.append(text)
    return Recorder()


def check_in_qgis(isodata, scene, model, home, work):
    """Starts QGIS in this process with the plug-in, the provider's setting
    pointing at the command, and runs the checks that need the algorithms'
    objects."""
    os.environ['HOME'] = home
    from qgis.core import QgsApplication
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

    check_both_algorithms_guard_alike(isodata, scene, model, work)
    # Far more iterations than a cancel needs: with no split (huge -std), no
    # merge (-merge-dist 0) and more classes wanted than centres, nothing
    # ends the loop early. Applying a model is a single pass, so it gets a
    # raster 256 times the scene's size, read through a VRT.
    from osgeo import gdal
    large = os.path.join(work, 'scene', 'large.vrt')
    gdal.Translate(large, scene, format='VRT', width=349 * 16, height=352 * 16)
    for name, parameters in (
            ('classify', {'INPUT': scene, 'CLASSES': 200, 'ITERATIONS': 1000, 'STD': 1e6,
                          'MERGE_DIST': 0}),
            ('apply', {'INPUT': large, 'MODEL': model})):
        check_cancel_leaves_nothing(name, parameters, work)
    check_cancel_after_the_end()
    check_failure_and_formats(scene, work)
    plugin.unload()
    app.exitQgis()


def virtual_raster(scene):
    """The scene's first band through QGIS's virtual raster provider: a layer
    that GDAL cannot open."""
    from qgis.core import QgsRasterDataProvider, QgsRasterLayer
    source = QgsRasterLayer(scene, 'scene', 'gdal')
    virtual = QgsRasterDataProvider.VirtualRasterParameters()
    virtual.crs, virtual.extent = source.crs(), source.extent()
    virtual.width, virtual.height = source.width(), source.height()
    virtual.formula = '"scene@1"'
    layer = QgsRasterDataProvider.VirtualRasterInputLayers()
    layer.name, layer.uri, layer.provider = 'scene', scene, 'gdal'
    virtual.rInputLayers = [layer]
    return QgsRasterLayer(QgsRasterDataProvider.encodeVirtualRasterProviderUri(virtual),
                          'virtual', 'virtualraster')


def check_both_algorithms_guard_alike(isodata, scene, model, work):
    """Classify and apply answer canExecute alike with the command missing
    and broken, refuse a run for the same reason, refuse an input GDAL does
    not read, have the same flags and pass QGIS's thread limit on."""
    from qgis.core import QgsProcessingAlgorithm, QgsProcessingContext
    from qgis.PyQt import sip
    from processing.core.ProcessingConfig import ProcessingConfig
    guards, guarded = folder(work, 'guards'), folder(work, 'guarded')
    # A file that exists but is no program.
    broken = os.path.join(guards, 'not-a-program')
    with open(broken, 'w') as stream:
        stream.write('nothing to run\n')
    not_gdal = virtual_raster(scene)
    check(not_gdal.isValid() and not_gdal.providerType() == 'virtualraster',
          'no virtual raster layer to try')

    class Context(QgsProcessingContext):
        # QGIS's limit on an algorithm's threads (a setting from 3.28 on).
        def maximumThreads(self):  # noqa: N802
            return 2

    # Each algorithm's own parameters for a short run.
    own = {'classify': {'ITERATIONS': 2}, 'apply': {'MODEL': model}}
    seen = {}
    for name, parameters in own.items():
        guarded_algorithm = algorithm(name)
        # Refused runs are to write into the folder, which must stay as it was.
        refused = os.path.join(guards, name + '.tif')

        def run(**changed):
            feedback, context = recording_feedback(), Context()
            values = dict(parameters, INPUT=scene, OUTPUT=refused)
            values.update(changed)
            results, ok = guarded_algorithm.run(values, context, feedback)
            return ok, results, feedback

        output = os.path.join(guarded, name + '.tif')
        ok, results, feedback = run(OUTPUT=output)
        seen[name] = {'ready': guarded_algorithm.canExecute(), 'ran': ok and results.get('OUTPUT') == output,
                      'threads': [c for c in feedback.commands if ' -threads 2 ' in c] != []}
        ok, results, feedback = run(INPUT=not_gdal)
        seen[name]['not gdal'] = (ok, feedback.said[-1:])
        path = os.environ['PATH']
        try:
            ProcessingConfig.setSettingValue('ISODATA_EXECUTABLE', '')
            os.environ['PATH'] = guards
            ok, results, feedback = run()
            seen[name]['missing'] = (guarded_algorithm.canExecute(), ok, feedback.said[-1:])
            ProcessingConfig.setSettingValue('ISODATA_EXECUTABLE', broken)
            ok, results, feedback = run()
            seen[name]['broken'] = (guarded_algorithm.canExecute(), ok, feedback.said[-1:])
        finally:
            os.environ['PATH'] = path
            ProcessingConfig.setSettingValue('ISODATA_EXECUTABLE', isodata)
        seen[name]['flags'] = int(guarded_algorithm.flags())
        check(sorted(os.listdir(guards)) == ['not-a-program'],
              'isodata:{} left {} behind'.format(name, os.listdir(guards)))
    # A refused run's Python frame outlives it, and so do the frames that
    # called it and their locals; the layer goes now, while QGIS can delete it.
    sip.delete(not_gdal)

    classify, apply = seen['classify'], seen['apply']
    for key in classify:
        check(apply[key] == classify[key], 'apply and classify differ in {}: {} and {}'.format(
            key, apply[key], classify[key]))
    check(classify['ready'] == (True, '') and classify['ran'] and classify['threads'],
          'with the command at hand: {}'.format(classify))
    check(classify['flags'] & int(QgsProcessingAlgorithm.FlagCanCancel)
          and not classify['flags'] & int(QgsProcessingAlgorithm.FlagNoThreading),
          'flags {:#x}'.format(classify['flags']))
    check(not classify['not gdal'][0] and 'through GDAL' in classify['not gdal'][1][0],
          'a layer GDAL cannot read: {}'.format(classify['not gdal']))
    for case, wanted in (('missing', 'not found on PATH'), ('broken', 'cannot be run')):
        (ready, reason), ok, said = classify[case]
        check(not ready and wanted in reason and not ok and said == [reason],
              'command {}: canExecute {}, run {} saying {}'.format(case, (ready, reason), ok, said))
    print('classify and apply alike: canExecute, refusals, flags, -threads')


def check_cancel_leaves_nothing(name, parameters, work):
    """A run cancelled at its first progress report stops the command with
    SIGTERM and leaves nothing in the output folder."""
    import subprocess as processes
    from qgis.core import QgsProcessingContext, QgsProcessingFeedback
    cancelled = folder(work, 'cancelled-' + name)
    feedback, reports, stopped = QgsProcessingFeedback(), [], []
    feedback.progressChanged.connect(lambda percent: (reports.append(percent), feedback.cancel()))
    terminate = processes.Popen.terminate

    def recorded(process):
        stopped.append(process)
        terminate(process)
    processes.Popen.terminate = recorded
    try:
        results, _ = algorithm(name).run(dict(parameters, OUTPUT=os.path.join(cancelled, 'classes.tif')),
                                         QgsProcessingContext(), feedback)
    finally:
        processes.Popen.terminate = terminate

    check(len(reports) >= 1, '{}: the run reported no progress before it ended'.format(name))
    # Ended by the signal (the command exits 128 + SIGTERM once it has cleaned up), not done.
    check([p.returncode in (-15, 143) for p in stopped] == [True],
          '{}: SIGTERM went to {} commands, which ended with {}'.format(
              name, len(stopped), [p.returncode for p in stopped]))
    check('OUTPUT' not in results, '{}: a cancelled run returned an output'.format(name))
    check(os.listdir(cancelled) == [], '{}: a cancelled run left {}'.format(name, os.listdir(cancelled)))
    print('isodata:{} cancelled at {:.1f}%, output folder empty'.format(name, reports[0]))


def check_cancel_after_the_end():
    """A cancel that comes when the command has already finished (a stand-in
    that lets SIGTERM pass and ends with status 0) leaves the run standing:
    its summary comes back, not the None of a stopped run."""
    from qgis.core import QgsProcessingFeedback
    from isodata_processing import command
    stand_in = [sys.executable, '-c', (
        'import signal, sys, time\n'
        'signal.signal(signal.SIGTERM, signal.SIG_IGN)\n'
        'print("progress 50.0 Working", file=sys.stderr, flush=True)\n'
        'time.sleep(0.5)\n'
        'print(\'{"classes": []}\')\n')]
    feedback = QgsProcessingFeedback()
    feedback.progressChanged.connect(lambda percent: feedback.cancel())
    summary = command.run(stand_in, feedback)
    check(feedback.isCanceled() and summary == {'classes': []},
          'a run that finished as it was cancelled gave {}'.format(summary))
    print('a cancel after the command finished leaves the run standing')


def check_failure_and_formats(scene, work):
    from qgis.core import QgsProcessingContext
    feedback = recording_feedback()
    algorithm('classify').run({'INPUT': scene, 'BANDS': [9], 'OUTPUT': os.path.join(folder(work, 'failed'), 'c.tif')},
                              QgsProcessingContext(), feedback)
    message = "isodata: -b 9: input '{}' has only 6 bands".format(scene)
    check([m for m in feedback.said if 'only 6 bands' in m] == [message],
          'the failure reached the feedback as {}'.format(feedback.said))
    for name in ('classify', 'apply'):
        offered = algorithm(name).parameterDefinition('OUTPUT').supportedOutputRasterLayerExtensions()
        # An HTML output is what the Processing Results Viewer lists.
        instance = algorithm(name)  # the definition lives as long as its algorithm
        check(instance.outputDefinition('REPORT').type() == 'outputHtml',
              '{}: the report is no HTML output'.format(name))
        check('tif' in offered and not {'jpg', 'vrt', 'webp'} & set(offered),
              'isodata:{} output offers {}'.format(name, offered))
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
        home = folder(work, 'home')
        env = {k: v for k, v in os.environ.items() if not k.startswith(('XDG_', 'QGIS_'))}
        env.update(HOME=home, QT_QPA_PLATFORM='offscreen',
                   PATH=os.path.dirname(isodata) + os.pathsep + env.get('PATH', ''))
        subprocess.run(['bash', os.path.join(source, 'scripts', 'install-qgis-plugin.sh')],
                       env=env, check=True)
        # A copy, so that nothing of a run lands beside the shared scene.
        scene = os.path.join(folder(work, 'scene'), 'L7_ETMs.tif')
        shutil.copy(os.path.join(source, 'data', 'L7_ETMs.tif'), scene)

        model = check_qgis_process_matches_command(isodata, scene, work, env)
        check_in_qgis(isodata, scene, model, home, work)


if __name__ == '__main__':
    main()

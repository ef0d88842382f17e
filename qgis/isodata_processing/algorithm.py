"""What the provider's Processing algorithms share: the isodata command they
run, the checks before a run, and the run itself.

Plan: an algorithm declares the parameters between its input raster and its
class raster output (declare_parameters) and turns their values into command
arguments (command_arguments); nothing else differs between algorithms. This
class adds the input raster and the output, says whether the command can run
(found, and it answers --options-json), refuses an input that GDAL does not
read, passes QGIS's thread limit on, starts the command through command.run
(which relays its progress, warnings and notices, stops it with SIGTERM on
cancel and raises its failure message), turns a failure into a Processing
error and logs the class summary the command returns. The output offers only
the file types of the formats the command writes the classes to exactly (its
--options-json lists them). Both algorithms may also write the run's HTML
report (-report), which QGIS shows in the Processing Results Viewer.
"""
import os
import shlex

from qgis.core import (QgsProcessingAlgorithm, QgsProcessingException,
                       QgsProcessingParameterFileDestination,
                       QgsProcessingParameterRasterDestination,
                       QgsProcessingParameterRasterLayer,
                       QgsRasterFileWriter)
from qgis.PyQt.QtCore import QCoreApplication

from . import command

DEFAULT_FORMAT = 'GTiff'


def _tr(text):
    return QCoreApplication.translate('IsodataAlgorithm', text)


class ClassRasterDestination(QgsProcessingParameterRasterDestination):
    """A raster destination that offers only the given formats' extensions,
    the first format's first extension by default."""

    def __init__(self, name, description, formats):
        super().__init__(name, description)
        self.formats = formats
        self.extensions = []
        for format_ in formats:
            self.extensions += [e for e in format_['extensions'] if e not in self.extensions]

    def clone(self):
        copy = ClassRasterDestination(self.name(), self.description(), self.formats)
        copy.setFlags(self.flags())
        copy.setDefaultValue(self.defaultValue())
        return copy

    def supportedOutputRasterLayerExtensions(self):
        return list(self.extensions)

    def defaultFileExtension(self):
        return self.extensions[0]

    def createFileFilter(self):
        return ';;'.join('{} (*.{})'.format(f['name'], ' *.'.join(f['extensions'])) for f in self.formats)


class IsodataAlgorithm(QgsProcessingAlgorithm):
    """An algorithm that labels its input raster by one run of the isodata
    command, found when it runs (locate_executable)."""
    INPUT = 'INPUT'
    OUTPUT = 'OUTPUT'
    REPORT = 'REPORT'

    def __init__(self, locate_executable):
        super().__init__()
        self.locate_executable = locate_executable

    def createInstance(self):
        return type(self)(self.locate_executable)

    def flags(self):
        # The work happens in the command's own process, so a run may go on
        # a background thread like any algorithm's, and it can always be
        # cancelled: the command cleans up after itself on SIGTERM.
        return super().flags() | QgsProcessingAlgorithm.FlagCanCancel

    # What each algorithm declares.

    def declare_parameters(self):
        """Adds the parameters that come between the input and the output."""
        raise NotImplementedError

    def command_arguments(self, parameters, context):
        """The command arguments for the declared parameters' values."""
        raise NotImplementedError

    # What they share.

    def initAlgorithm(self, config=None):
        self.addParameter(QgsProcessingParameterRasterLayer(self.INPUT, _tr('Input raster')))
        self.declare_parameters()
        formats = self._formats()
        self.addParameter(ClassRasterDestination(self.OUTPUT, _tr('Class raster'), formats) if formats
                          else QgsProcessingParameterRasterDestination(self.OUTPUT, _tr('Class raster')))
        # An HTML file destination is an HTML output: the Results Viewer lists it.
        self.addParameter(QgsProcessingParameterFileDestination(
            self.REPORT, _tr('Report (HTML)'), _tr('HTML files (*.html)'), optional=True, createByDefault=False))

    def _formats(self):
        """The formats the command writes exactly, or () when it cannot say."""
        program = self.locate_executable()
        try:
            return command.output_formats(program) if program else ()
        except command.CommandError:
            return ()

    def _program(self):
        """The command, and '' when it runs; None and the reason otherwise."""
        program = self.locate_executable()
        if not program:
            return None, _tr('The isodata command was not found on PATH; set its '
                             'path in Settings > Options > Processing > Providers > ISODATA.')
        try:
            command.offered_options(program)
        except command.CommandError as error:
            return None, _tr('The isodata command cannot be run: {}').format(error)
        return program, ''

    def canExecute(self):
        program, reason = self._program()
        return program is not None, reason

    def processAlgorithm(self, parameters, context, feedback):
        program, reason = self._program()
        if program is None:
            raise QgsProcessingException(reason)
        layer = self.parameterAsRasterLayer(parameters, self.INPUT, context)
        if layer is None:
            raise QgsProcessingException(self.invalidRasterError(parameters, self.INPUT))
        if layer.providerType() != 'gdal':
            raise QgsProcessingException(_tr('isodata reads files through GDAL; save the '
                                             'layer to a GeoTIFF first.'))
        output = self.parameterAsOutputLayer(parameters, self.OUTPUT, context)
        # QGIS has already asked before replacing an existing output file.
        arguments = [program, '-overwrite', '-json', '-progress-format', 'machine',
                     '-of', self.format_for(output, self._formats())]
        threads = self._threads(context)
        if threads:
            arguments += ['-threads', str(threads)]
        report = self.parameterAsFileOutput(parameters, self.REPORT, context)
        if report:
            arguments += ['-report', report]
        arguments += self.command_arguments(parameters, context) + [layer.source(), output]
        feedback.pushCommandInfo(shlex.join(arguments))

        try:
            summary = command.run(arguments, feedback)
        except command.CommandError as error:
            raise QgsProcessingException(str(error))
        if summary is None:
            feedback.pushInfo(_tr('Cancelled; nothing was written.'))
            return {}
        self.log_summary(summary, feedback)
        results = {self.OUTPUT: output}
        if report:
            results[self.REPORT] = report
        return results

    @staticmethod
    def _threads(context):
        """QGIS's own setting for the threads an algorithm may use, if it has one."""
        maximum = getattr(context, 'maximumThreads', None)
        threads = maximum() if maximum else 0
        return threads if threads and threads > 0 else None

    @staticmethod
    def format_for(path, formats):
        """The command's format for the extension; QGIS's guess for another
        (which the command may refuse, saying why); GeoTIFF for none."""
        extension = os.path.splitext(path)[1].lstrip('.').lower()
        for format_ in formats:
            if extension in format_['extensions']:
                return format_['name']
        return QgsRasterFileWriter.driverForExtension(extension) or DEFAULT_FORMAT

    @staticmethod
    def log_summary(summary, feedback):
        """The class table of the command's JSON summary, in the log."""
        classes = summary['classes']
        feedback.pushInfo(_tr('{} classes in {:.1f} s; {} valid pixels unclassified, {} left out '
                              '(nodata or masked)').format(
            len(classes), summary['seconds'], summary['unclassified'], summary['excluded']['pixels']))
        for entry in classes:
            feedback.pushInfo('{:>5}  {:<14} {:>10} pixels {:6.1f}%'.format(
                entry['value'], entry['name'], entry['pixels'], 100.0 * entry['share']))

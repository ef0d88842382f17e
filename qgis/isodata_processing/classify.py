"""The Processing algorithm isodata:classify: its parameters, read from the
isodata command's own option table, and the step from parameter values to one
run of the command.

Plan: declare the input, then one parameter for each option the command
offers to QGIS (`isodata --options-json`, read once per executable): the
repeatable band option as a band list of the input, the others as numbers
with the command's defaults, ranges, labels and help; then the output. In
processAlgorithm resolve the input layer and the output format (from the
output file's extension, GeoTIFF when it names none GDAL knows), run the
command through command.run, and log the class summary it returns. QGIS then
loads the output, whose colour table and category names give the class
colours and names. The output offers only the file types of the formats the
command writes the classes to exactly (its --options-json lists them); a
failure is the command's own one-line message.

When the command cannot be found or its option table cannot be read, the
algorithm shows only its input and output, canExecute says why, and a run is
refused with the same reason: a run without the command's own parameters
could only guess them.
"""
import os
import shlex

from qgis.core import (QgsProcessing, QgsProcessingAlgorithm,
                       QgsProcessingException, QgsProcessingParameterBand,
                       QgsProcessingParameterBoolean,
                       QgsProcessingParameterFileDestination,
                       QgsProcessingParameterNumber,
                       QgsProcessingParameterString,
                       QgsProcessingParameterRasterDestination,
                       QgsProcessingParameterRasterLayer,
                       QgsRasterFileWriter)
from qgis.PyQt.QtCore import QCoreApplication

from . import command

DEFAULT_FORMAT = 'GTiff'
# The box beside a raster_or_none parameter that asks for the word none.
NONE_SUFFIX = '_NONE'


def _tr(text):
    return QCoreApplication.translate('ClassifyAlgorithm', text)


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
    """What the provider's algorithms share: the command they run, found
    when they run, and the class raster output in the formats it writes
    exactly."""

    def __init__(self, locate_executable):
        super().__init__()
        self.locate_executable = locate_executable

    def createInstance(self):
        return type(self)(self.locate_executable)

    def _formats(self):
        """The formats the command writes exactly, or () when it cannot say."""
        program = self.locate_executable()
        try:
            return command.output_formats(program) if program else ()
        except command.CommandError:
            return ()

    def _class_raster_parameter(self, name):
        formats = self._formats()
        return (ClassRasterDestination(name, _tr('Class raster'), formats) if formats
                else QgsProcessingParameterRasterDestination(name, _tr('Class raster')))


class ClassifyAlgorithm(IsodataAlgorithm):
    INPUT = 'INPUT'
    OUTPUT = 'OUTPUT'

    def name(self):
        return 'classify'

    def displayName(self):
        return _tr('ISODATA unsupervised classification')

    def tags(self):
        return _tr('isodata,unsupervised,classification,clustering,k-means').split(',')

    def shortHelpString(self):
        return _tr(
            'Sorts the pixels of a multi-band raster into classes of similar '
            'values with the ISODATA method: pixels go to their nearest '
            'cluster centre, centres are recomputed, spread-out clusters are '
            'split and close ones merged, for a number of iterations.\n\n'
            'The result is a one-band Byte raster: 0 is unclassified, 1..n '
            'are the classes, with a colour and a name each. Its format '
            'follows the output file\'s extension (GeoTIFF by default).\n\n'
            'Runs the isodata command, found on PATH or at the path set in '
            'Settings > Options > Processing > Providers > ISODATA.')

    def _options(self):
        """The command's options for QGIS, or () when they cannot be read."""
        program = self.locate_executable()
        try:
            return command.offered_options(program) if program else ()
        except command.CommandError:
            return ()

    def _parameter(self, option):
        name, label, kind = option['qgis_name'], _tr(option['qgis_label']), option.get('qgis_kind')
        if kind == 'text':
            parameter = QgsProcessingParameterString(name, label, optional=True)
        elif kind == 'raster_or_none':
            parameter = QgsProcessingParameterRasterLayer(name, label, optional=True)
        elif kind == 'file_out':
            parameter = QgsProcessingParameterFileDestination(
                name, label, _tr('JSON files (*.json)'), optional=True, createByDefault=False)
        elif option['repeatable']:
            parameter = QgsProcessingParameterBand(name, label, None, self.INPUT,
                                                   optional=True, allowMultiple=True)
        else:
            whole = option['type'] == 'int'
            kind = QgsProcessingParameterNumber.Integer if whole else QgsProcessingParameterNumber.Double
            parameter = QgsProcessingParameterNumber(name, label, kind, option['default'], False)
            if option['min'] is not None:
                parameter.setMinimum(option['min'])
            if option['max'] is not None:
                parameter.setMaximum(option['max'])
            if not whole:
                parameter.setMetadata({'widget_wrapper': {'decimals': 2}})
        parameter.setHelp(_tr(option['help']))
        return parameter

    def initAlgorithm(self, config=None):
        self.addParameter(QgsProcessingParameterRasterLayer(
            self.INPUT, _tr('Input raster')))
        for option in self._options():
            self.addParameter(self._parameter(option))
            if option.get('qgis_kind') == 'raster_or_none':
                self.addParameter(QgsProcessingParameterBoolean(
                    option['qgis_name'] + NONE_SUFFIX,
                    _tr("Ignore the input's own mask and alpha bands"), False, optional=True))
        self.addParameter(self._class_raster_parameter(self.OUTPUT))

    def canExecute(self):
        program = self.locate_executable()
        if not program:
            return False, _tr('The isodata command was not found on PATH; set its '
                              'path in Settings > Options > Processing > Providers > ISODATA.')
        try:
            command.offered_options(program)
        except command.CommandError as error:
            return False, _tr('The isodata command cannot be run: {}').format(error)
        return True, ''

    def processAlgorithm(self, parameters, context, feedback):
        program = self.locate_executable()
        ready, reason = self.canExecute()
        if not ready:
            raise QgsProcessingException(reason)
        layer = self.parameterAsRasterLayer(parameters, self.INPUT, context)
        if layer is None:
            raise QgsProcessingException(self.invalidRasterError(parameters, self.INPUT))
        if layer.providerType() != 'gdal':
            raise QgsProcessingException(_tr('isodata reads files through GDAL; save the '
                                             'layer to a GeoTIFF first.'))
        output = self.parameterAsOutputLayer(parameters, self.OUTPUT, context)
        arguments = self._command_line(program, parameters, context, layer.source(), output)
        feedback.pushCommandInfo(shlex.join(arguments))

        try:
            summary = command.run(arguments, feedback)
        except command.CommandError as error:
            raise QgsProcessingException(str(error))
        if summary is None:
            feedback.pushInfo(_tr('Cancelled; nothing was written.'))
            return {}
        self.log_summary(summary, feedback)
        return {self.OUTPUT: output}

    def _command_line(self, program, parameters, context, source, output):
        # QGIS has already asked before replacing an existing output file.
        arguments = [program, '-overwrite', '-json', '-progress-format', 'machine',
                     '-of', self.format_for(output, self._formats())]
        threads = self._threads(context)
        if threads:
            arguments += ['-threads', str(threads)]
        for option in self._options():
            flag, name, kind = option['names'][0], option['qgis_name'], option.get('qgis_kind')
            if kind:
                values = self._text_values(parameters, name, kind, context)
            elif option['repeatable']:
                values = self.parameterAsInts(parameters, name, context)
            elif option['type'] == 'int':
                values = [self.parameterAsInt(parameters, name, context)]
            else:
                values = [self.parameterAsDouble(parameters, name, context)]
            for value in values:
                arguments += [flag, str(value)]
        return arguments + [source, output]

    def _text_values(self, parameters, name, kind, context):
        """The value of a text-like parameter, as the command takes it; none when unset."""
        if kind == 'raster_or_none':
            if self.parameterAsBool(parameters, name + NONE_SUFFIX, context):
                return ['none']
            layer = self.parameterAsRasterLayer(parameters, name, context)
            return [layer.source()] if layer is not None else []
        if kind == 'file_out':
            path = self.parameterAsFileOutput(parameters, name, context)
            return [path] if path else []
        text = self.parameterAsString(parameters, name, context).strip()
        return [text] if text else []

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

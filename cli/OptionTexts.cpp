// The texts read from the option table: the usage synopsis, --help with
// each option's help, default and range, the version line, an option's
// value as JSON for the summary, and the whole table as JSON.
#include "OptionTable.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <OutputFormats.h>
#include <Run.h>

#include <sstream>

namespace isodata_cli {
namespace {

constexpr const char* kUsageStart = "Usage: isodata ";
constexpr size_t kHelpColumn = 23;  // where an option's help starts
constexpr size_t kHelpWidth = 79;

std::string Number(double value) {
    std::ostringstream s;
    s << value;
    return s.str();
}

// "[-classes <n>]", "[-b <band>]...".
std::string Synopsis(const OptionRow& row) {
    const std::string value = row.value.empty() ? "" : " " + row.value;
    return "[" + row.Shown() + value + "]" + (row.Repeatable() ? "..." : "");
}

// " Default: 8 (1..255)." and the like; empty for an option without one.
std::string DefaultSentence(const OptionRow& row) {
    if (!row.byDefault.empty()) return " Default: " + row.byDefault + ".";
    if (!row.text.empty()) return " Default: " + row.text + ".";
    const std::string type = row.TypeName();
    if (type != "int" && type != "real") return {};
    std::string range;
    if (row.min && row.max) range = " (" + Number(*row.min) + ".." + Number(*row.max) + ")";
    else if (row.min) range = *row.min == 0 ? " (0 or more)" : " (at least " + Number(*row.min) + ")";
    return " Default: " + Number(row.number) + range + ".";
}

// text broken into lines of at most kHelpWidth, each but the first indented
// to the help column.
std::string Wrapped(const std::string& text) {
    std::istringstream words(text);
    std::string out, line, word;
    while (words >> word) {
        if (!line.empty() && kHelpColumn + line.size() + 1 + word.size() > kHelpWidth) {
            out += line + "\n" + std::string(kHelpColumn, ' ');
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return out + line + "\n";
}

std::string HelpEntry(const OptionRow& row) {
    std::string label = "  ";
    for (size_t i = 0; i < row.names.size(); ++i) label += (i ? ", " : "") + row.names[i];
    if (!row.value.empty()) label += " " + row.value;
    label += label.size() < kHelpColumn ? std::string(kHelpColumn - label.size(), ' ')
                                        : "\n" + std::string(kHelpColumn, ' ');
    return label + Wrapped(row.help + DefaultSentence(row));
}

// How a run treats the files around it, and what its exit status says.
std::string RunFolderHelp() {
    return "The run folder: isodata works in a private folder it creates beside the\n"
           "output (or under --tmpdir), holding links to the input's files, the\n"
           "classification's working copy (up to as large as the input: 32-bit values\n"
           "of every band at full, half or quarter size; in memory when -mem allows)\n"
           "and scratch files (4 bytes a working-copy pixel), and the new result. A\n"
           "run that would not fit there is refused before anything is written\n"
           "(--debug shows the figures). Only when everything succeeded is the result\n"
           "moved to <output>, read back first if converted; otherwise, or when\n"
           "interrupted, the folder is removed and no file of yours is changed. A\n"
           "folder left by a killed run is removed by the next run in the same place.\n"
           "The input's folder is only read.\n\n"
           "Exit status:\n"
           "  0    the class raster (and preview) were written\n"
           "  1    bad command line or input; nothing was run\n"
           "  2    the classification failed (or the plug-in could not be loaded);\n"
           "       nothing was changed\n"
           "  3    the classification succeeded but the preview could not be written\n"
           "  129, 130, 143  ended by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was changed\n";
}

QJsonValue Bound(const std::optional<double>& bound) { return bound ? QJsonValue(*bound) : QJsonValue(); }

QJsonObject SpecJson(const OptionRow& row, const Options& defaults) {
    QJsonArray names, choices;
    for (const std::string& n : row.names) names.append(QString::fromStdString(n));
    for (const auto& choice : row.choices) choices.append(QString::fromStdString(choice.first));
    const auto TextOrNull = [](const std::string& s) { return s.empty() ? QJsonValue() : QString::fromStdString(s); };
    QJsonObject json{{"names", names},
                     {"type", QString::fromStdString(row.TypeName())},
                     {"repeatable", row.Repeatable()},
                     {"default", ValueJson(row, defaults)},
                     {"min", Bound(row.min)},
                     {"max", Bound(row.max)},
                     {"help", QString::fromStdString(row.help)},
                     {"json_key", TextOrNull(row.jsonKey)},
                     {"qgis_name", TextOrNull(row.qgisName)},
                     {"qgis_label", TextOrNull(row.qgisLabel)},
                     {"qgis_kind", TextOrNull(row.qgisKind)},
                     {"python_name", TextOrNull(row.pythonName)},
                     {"finds_classes", row.findsClasses}};
    if (!choices.isEmpty()) json["choices"] = choices;
    return json;
}

} // namespace

QJsonValue ValueJson(const OptionRow& row, const Options& o) {
    const auto Text = [](const std::string& s) { return s.empty() ? QJsonValue() : QString::fromStdString(s); };
    if (auto f = std::get_if<bool Options::*>(&row.field)) return o.**f;
    if (auto f = std::get_if<int Options::*>(&row.field)) {
        if (row.automatic && o.**f == row.number) return QJsonValue();
        for (const auto& [word, number] : row.words)
            if (o.**f == number) return QString::fromStdString(word);
        return o.**f;
    }
    if (auto f = std::get_if<double Options::*>(&row.field)) return o.**f;
    if (auto f = std::get_if<std::string Options::*>(&row.field)) return Text(o.**f);
    if (auto f = std::get_if<ProgressFormat Options::*>(&row.field))
        for (const auto& [word, choice] : row.choices)
            if (o.**f == choice) return QString::fromStdString(word);
    QJsonArray values;
    if (auto f = std::get_if<std::vector<int> Options::*>(&row.field))
        for (int v : o.**f) values.append(v);
    if (auto f = std::get_if<std::vector<std::string> Options::*>(&row.field))
        for (const std::string& v : o.**f) values.append(QString::fromStdString(v));
    return row.Repeatable() ? QJsonValue(values) : QJsonValue();
}

QJsonObject ParametersJson(const Options& options) {
    QJsonObject parameters;
    for (const OptionRow& row : OptionTable())
        if (!row.jsonKey.empty()) parameters[QString::fromStdString(row.jsonKey)] = ValueJson(row, options);
    return parameters;
}

std::string UsageText() {
    const std::string indent(std::string(kUsageStart).size(), ' ');
    std::string usage = kUsageStart, line;
    for (const OptionRow& row : OptionTable()) {
        if (row.newUsageLine) {
            usage += line + "\n" + indent;
            line.clear();
        }
        line += (line.empty() ? "" : " ") + Synopsis(row);
    }
    return usage + line + "\n" + indent + "<input> <output>\n";
}

std::string HelpText() {
    std::string help = "isodata: unsupervised ISODATA classification of a multi-band raster.\n\n" + UsageText() +
                       "\n"
                       "Writes <output> as a one-band Byte class raster georeferenced like <input>,\n"
                       "by default in " + isodata_run::DefaultFormat() + " format (raw pixels in <output>, the header in\n"
                       "<output base>.hdr). Pixel value 0 is unclassified, 1..n are the classes,\n"
                       "each with a name and a colour.\n\n"
                       "Options:\n";
    for (const OptionRow& row : OptionTable()) help += HelpEntry(row);
    return help + "\n" + RunFolderHelp();
}

std::string VersionText() {
    return std::string("isodata ") + ISODATA_VERSION + " (" + isodata_run::GdalVersion() + ")";
}

std::string OptionsJson() {
    const Options defaults = DefaultOptions();
    QJsonArray options, formats;
    for (const OptionRow& row : OptionTable()) options.append(SpecJson(row, defaults));
    // What -of accepts with its default options, for a program that offers file types.
    for (const isodata_run::ExactFormat& format : isodata_run::ExactFormats()) {
        QJsonArray extensions;
        for (const std::string& e : format.extensions) extensions.append(QString::fromStdString(e));
        formats.append(QJsonObject{{"name", QString::fromStdString(format.name)}, {"extensions", extensions}});
    }
    return QJsonDocument(QJsonObject{{"options", options}, {"output_formats", formats}})
        .toJson(QJsonDocument::Indented)
        .toStdString();
}

} // namespace isodata_cli

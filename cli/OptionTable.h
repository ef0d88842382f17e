// The one table of isodata's options. Each row holds everything about one
// option: its spellings, where its value goes, its default and range, why
// the range is what it is, its help, its key in the -json summary and its
// QGIS parameter. The parser, the range checks, the usage and --help texts,
// the summary's "parameters" and --options-json are all read from it.
#pragma once

#include "Options.h"

#include <RunAsk.h>

#include <QJsonObject>
#include <QJsonValue>

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace isodata_cli {

// Where an option's value lands in Options; the member's type gives the
// option's value type (a vector: repeatable). Nothing for the options that
// only ask for a text (--help, --version, --options-json).
using Field = std::variant<std::monostate, bool Options::*, int Options::*, double Options::*,
                           std::string Options::*, ProgressFormat Options::*, std::vector<int> Options::*,
                           std::vector<std::string> Options::*>;

struct OptionRow {
    std::vector<std::string> names;  // as typed in messages and help, the main one first
    Field field;
    ParseStatus asks = ParseStatus::Run;  // what an option without a field asks for
    std::string value;                    // how usage and help name the value: "<n>"
    double number = 0.0;                  // default of an int or real option
    std::string text;                     // default of a text option
    std::vector<std::pair<std::string, ProgressFormat>> choices;
    std::vector<std::pair<std::string, double>> words;  // words that stand for a number ("ALL_CPUS" for 0)
    bool automatic = false;  // the default leaves the value to the run library (null in JSON)
    isodata_run::AskField ask = isodata_run::AskField::None;  // the run library's name of the setting
    std::optional<double> min, max;
    std::string outOfRange = "is out of range";  // what a value beyond min..max "is"
    std::string why;                             // why the range is what it is
    std::string expects;    // what a malformed value should have been: "a whole number"
    std::string help;       // one paragraph, without the default
    std::string byDefault;  // the default in words, where the value alone says too little
    std::string jsonKey;    // key in the -json summary's "parameters"; empty: not there
    std::string qgisName;   // the QGIS parameter; empty: not offered there
    std::string qgisLabel;
    // How QGIS offers a text option: "text" (a string, empty for none),
    // "raster_or_none" (a raster layer, and a box for the word none) or
    // "file_out" (a file to write). Numbers and band lists need no word.
    std::string qgisKind;
    std::string pythonName;  // the keyword of the Python package; empty: not offered there
    bool newUsageLine = false;  // starts a new line of the usage synopsis
    bool findsClasses = false;  // a setting of the clustering, which a model to apply does not take

    const std::string& Shown() const { return names.front(); }
    bool TakesValue() const;
    bool Repeatable() const;
    std::string TypeName() const;  // "int", "real", "text", "choice" or "flag"
};

// In the order of the usage synopsis and of --help.
const std::vector<OptionRow>& OptionTable();

// How the command names a setting of the run library: the option's main
// name, "input" or "output" for the file names; empty for the run itself.
std::string Spelling(isodata_run::AskField field);
// A message of the run library's with the settings that bear on it, as
// "<message> (use -overwrite to replace it)".
std::string WithRemedies(const std::string& message, const std::vector<isodata_run::Remedy>& remedies);
// A refusal as one line: "-b 7: input 'x' has only 6 bands".
std::string RefusalText(const isodata_run::Refusal& refusal);

// What the words alone show to be wrong: a typed number out of its range,
// or a clustering setting given with a model to apply; nothing when all fit.
std::string CheckWords(const Options& options);

// An option's value in options as JSON (null for an empty text or an
// automatic choice).
QJsonValue ValueJson(const OptionRow& row, const Options& options);
// The -json summary's "parameters": every option with a JSON key.
QJsonObject ParametersJson(const Options& options);

// The short synopsis printed with a usage error, the full --help text, the
// version line, and the table as JSON for programs that offer the options.
std::string UsageText();
std::string HelpText();
std::string VersionText();
std::string OptionsJson();

} // namespace isodata_cli

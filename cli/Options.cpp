// Parses isodata's command line with QCommandLineParser in single-dash word
// mode, so options read like GDAL's utilities (-classes 8, -b 1 -b 3) and the
// double-dash spellings work too. The options are the option table's; only
// the form of each value is checked here, whether it makes sense is
// Validate's business.
//
//  1. A value option as the last word has no value; say so before Qt would.
//  2. Let Qt split the words; name an unknown option as it was typed.
//  3. An option that asks for a text (--help, ...) wins over everything else.
//  4. Flags, then each value option's values (every one of a repeatable
//     option, the last of any other), then the two file names.
#include "Options.h"

#include "OptionTable.h"

#include <QCommandLineParser>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace isodata_cli {
namespace {

bool ParseWhole(const std::string& text, int& value) {
    // strtol skips leading blanks; a value typed with them is still a typo.
    if (text.empty() || text.front() == ' ' || text.front() == '\t') return false;
    errno = 0;
    char* end = nullptr;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || end == text.c_str()) return false;
    if (v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max()) return false;
    value = static_cast<int>(v);
    return true;
}

bool ParseReal(const std::string& text, double& value) {
    if (text.empty() || text.front() == ' ' || text.front() == '\t') return false;
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || end == text.c_str() || !std::isfinite(v)) return false;
    value = v;
    return true;
}

// What a value of row should look like: "a whole number", "bar, lines or machine".
std::string Expected(const OptionRow& row) {
    if (!row.expects.empty()) return row.expects;
    if (row.TypeName() == "int") return "a whole number";
    if (row.TypeName() == "real") return "a number";
    std::string words;
    for (size_t i = 0; i < row.choices.size(); ++i)
        words += (i == 0 ? "" : i + 1 == row.choices.size() ? " or " : ", ") + row.choices[i].first;
    return words;
}

// Stores one value of row in o; returns the complaint, or nothing.
// The number a word of row stands for, in any case ("ALL_CPUS", "all_cpus").
const std::pair<std::string, double>* WordOf(const OptionRow& row, const std::string& value) {
    for (const auto& word : row.words)
        if (QString::fromStdString(word.first).compare(QString::fromStdString(value), Qt::CaseInsensitive) == 0)
            return &word;
    return nullptr;
}

std::string Apply(const OptionRow& row, const std::string& value, Options& o) {
    const std::string malformed = row.Shown() + " expects " + Expected(row) + ", got '" + value + "'";
    if (const auto* word = WordOf(row, value)) {
        if (auto f = std::get_if<int Options::*>(&row.field)) o.**f = static_cast<int>(word->second);
        return {};
    }
    if (auto f = std::get_if<int Options::*>(&row.field)) return ParseWhole(value, o.**f) ? "" : malformed;
    if (auto f = std::get_if<double Options::*>(&row.field)) return ParseReal(value, o.**f) ? "" : malformed;
    if (auto f = std::get_if<std::vector<int> Options::*>(&row.field)) {
        int number = 0;
        if (!ParseWhole(value, number)) return malformed;
        (o.**f).push_back(number);
        return {};
    }
    if (auto f = std::get_if<ProgressFormat Options::*>(&row.field)) {
        const auto chosen = std::find_if(row.choices.begin(), row.choices.end(),
                                         [&value](const auto& choice) { return choice.first == value; });
        if (chosen == row.choices.end()) return malformed;
        o.**f = chosen->second;
        return {};
    }
    // Texts: only an empty one is malformed.
    if (value.empty()) return row.Shown() + " expects " + Expected(row);
    if (auto f = std::get_if<std::string Options::*>(&row.field)) o.**f = value;
    if (auto f = std::get_if<std::vector<std::string> Options::*>(&row.field)) (o.**f).push_back(value);
    return {};
}

// An option's name as Qt knows it: without its dashes.
QStringList QtNames(const OptionRow& row) {
    QStringList names;
    for (const std::string& n : row.names) names << QString::fromStdString(n.substr(n.find_first_not_of('-')));
    return names;
}

std::string Stripped(const std::string& arg) {
    const size_t start = arg.find_first_not_of('-');
    const size_t equals = arg.find('=');
    return start == std::string::npos ? std::string() : arg.substr(start, equals - start);
}

ParseResult Fail(std::string message) {
    ParseResult r;
    r.message = std::move(message);
    return r;
}

// The parser takes the word after a value option as its value whatever it
// looks like, so the only value that can be missing is after the last word.
std::string MissingValue(const std::vector<std::string>& args) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--") break;
        if (arg.size() < 2 || arg[0] != '-' || arg.find('=') != std::string::npos) continue;
        for (const OptionRow& row : OptionTable()) {
            if (!row.TakesValue() || !QtNames(row).contains(QString::fromStdString(Stripped(arg)))) continue;
            if (i + 1 == args.size()) return "option " + arg + " needs a value";
            ++i;
        }
    }
    return {};
}

// The word as typed that named an option the parser did not know.
std::string TypedUnknown(const std::vector<std::string>& args, const QString& name) {
    for (const std::string& arg : args)
        if (arg.size() > 1 && arg[0] == '-' && QString::fromStdString(Stripped(arg)) == name) return arg;
    return "-" + name.toStdString();
}

std::string ApplyOptions(const QCommandLineParser& parser, Options& o) {
    for (const OptionRow& row : OptionTable()) {
        const QString name = QtNames(row).first();
        if (parser.isSet(name)) o.given.insert(row.Shown());
        if (auto flag = std::get_if<bool Options::*>(&row.field)) o.**flag = parser.isSet(name);
        if (!row.TakesValue()) continue;
        const QStringList values = parser.values(name);
        const int first = row.Repeatable() ? 0 : static_cast<int>(values.size()) - 1;
        for (int i = std::max(first, 0); i < values.size(); ++i)
            if (std::string complaint = Apply(row, values[i].toStdString(), o); !complaint.empty()) return complaint;
    }
    return {};
}

} // namespace

ParseResult ParseArguments(const std::vector<std::string>& args) {
    if (std::string missing = MissingValue(args); !missing.empty()) return Fail(missing);
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    for (const OptionRow& row : OptionTable())
        parser.addOption(row.TakesValue() ? QCommandLineOption(QtNames(row), QString(), QStringLiteral("value"))
                                           : QCommandLineOption(QtNames(row)));
    QStringList words{QStringLiteral("isodata")};
    for (const std::string& a : args) words << QString::fromStdString(a);
    if (!parser.parse(words)) {
        const QStringList unknown = parser.unknownOptionNames();
        if (!unknown.isEmpty()) return Fail("unknown option '" + TypedUnknown(args, unknown.first()) + "'");
        return Fail(parser.errorText().toStdString());
    }

    ParseResult result;
    for (const OptionRow& row : OptionTable())
        if (row.asks != ParseStatus::Run && parser.isSet(QtNames(row).first())) {
            result.status = row.asks;
            return result;
        }

    Options& o = result.options = DefaultOptions();
    if (std::string complaint = ApplyOptions(parser, o); !complaint.empty()) return Fail(complaint);
    const QStringList files = parser.positionalArguments();
    if (files.isEmpty()) return Fail("no input and output file given");
    if (files.size() == 1) return Fail("no output file given after '" + files[0].toStdString() + "'");
    if (files.size() > 2)
        return Fail("too many file names: '" + files[2].toStdString() + "' (expected <input> <output>)");
    o.input = files[0].toStdString();
    o.output = files[1].toStdString();
    result.status = ParseStatus::Run;
    return result;
}

} // namespace isodata_cli

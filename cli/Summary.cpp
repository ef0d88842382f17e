// Lays the figures of a run's report out as a table, or as JSON whose
// "parameters" the option table gives. Shares are of the valid pixels: the
// pixels the nodata values and masks left out are counted apart, and so are
// the valid pixels left unclassified.
#include "Summary.h"

#include "OptionTable.h"

#include <FileNames.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

namespace isodata_cli {

using isodata_run::ClassCount;
using isodata_run::ClassFigures;
using isodata_run::ResultSummary;
using isodata_run::RunFigures;
using isodata_run::RunOutcome;
using isodata_run::RunReport;

namespace {

// Band statistics shown per class in the table; more go to the JSON only.
constexpr std::size_t kTableBands = 6;

QJsonArray Numbers(const std::vector<int>& values) {
    QJsonArray array;
    for (int v : values) array.append(v);
    return array;
}

QJsonValue Reals(const std::vector<double>& values) {
    if (values.empty()) return QJsonValue();
    QJsonArray array;
    for (double v : values) array.append(std::isfinite(v) ? QJsonValue(v) : QJsonValue());
    return array;
}

const ClassFigures* FiguresOf(const RunFigures& f, int value) {
    for (const ClassFigures& c : f.classes)
        if (c.value == value) return &c;
    return nullptr;
}

std::int64_t Total(const ResultSummary& s) { return static_cast<std::int64_t>(s.width) * s.height; }
std::int64_t Valid(const RunReport& r) { return Total(r.summary) - r.figures.excludedPixels; }
std::int64_t UnclassifiedValid(const RunReport& r) { return r.summary.unclassified - r.figures.excludedPixels; }

QJsonObject ClassJson(const ClassCount& c, const RunReport& r) {
    const std::int64_t valid = Valid(r);
    QJsonObject entry{{"value", c.value},
                      {"name", QString::fromStdString(c.name)},
                      {"pixels", static_cast<double>(c.pixels)},
                      {"share", valid > 0 ? static_cast<double>(c.pixels) / static_cast<double>(valid) : 0.0}};
    entry["colour"] = c.hasColour ? QJsonValue(Numbers({c.red, c.green, c.blue})) : QJsonValue();
    if (const ClassFigures* f = FiguresOf(r.figures, c.value)) {
        entry["mean"] = Reals(f->mean);
        entry["stddev"] = Reals(f->stddev);
        entry["area"] = r.figures.pixelArea > 0 ? QJsonValue(r.figures.pixelArea * static_cast<double>(c.pixels))
                                                : QJsonValue();
    }
    return entry;
}

QJsonObject ExcludedJson(const RunFigures& f) {
    QJsonObject by;
    for (const auto& [rule, pixels] : f.excludedBy) by[QString::fromStdString(rule)] = static_cast<double>(pixels);
    return {{"pixels", static_cast<double>(f.excludedPixels)}, {"by", by}};
}

std::string Percent(std::int64_t part, std::int64_t whole) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f%%", whole ? 100.0 * static_cast<double>(part) / whole : 0.0);
    return text;
}

// "  class  band 1 mean (sd)  ..." lines of the classes' band statistics.
void StatisticsTable(std::ostream& out, const RunReport& r) {
    const ResultSummary& s = r.summary;
    std::size_t bands = 0;
    for (const ClassFigures& f : r.figures.classes) bands = std::max(bands, f.mean.size());
    if (bands == 0) return;
    out << "  class  band mean ± standard deviation" << (bands > kTableBands ? " (the first bands)" : "") << "\n";
    for (const ClassCount& c : s.classes) {
        const ClassFigures* f = FiguresOf(r.figures, c.value);
        if (!f || c.pixels == 0) continue;
        char line[64];
        std::snprintf(line, sizeof line, "  %5d ", c.value);
        out << line;
        for (std::size_t k = 0; k < std::min(bands, f->mean.size()) && k < kTableBands; ++k) {
            std::snprintf(line, sizeof line, " %9.4g ±%-8.3g", f->mean[k], f->stddev[k]);
            out << line;
        }
        out << "\n";
    }
}

} // namespace

std::string FormatJson(const RunReport& report, const Options& o, const isodata_run::SpaceEstimate& space) {
    const ResultSummary& s = report.summary;
    QJsonArray classes;
    for (const ClassCount& c : s.classes) classes.append(ClassJson(c, report));
    QJsonObject summary{{"input", QString::fromStdString(o.input)},
                        {"output", QString::fromStdString(o.output)},
                        {"format", QString::fromStdString(o.format)},
                        {"size", Numbers({s.width, s.height})},
                        {"parameters", ParametersJson(o)},
                        {"classes", classes},
                        {"unclassified", static_cast<double>(UnclassifiedValid(report))},
                        {"excluded", ExcludedJson(report.figures)},
                        {"seconds", report.seconds}};
    if (report.figures.known)
        summary["unclassified_by"] = QJsonObject{{"background", static_cast<double>(report.figures.background)},
                                                 {"non_finite", static_cast<double>(report.figures.nonFinite)},
                                                 {"beyond_reach", static_cast<double>(report.figures.beyondReach)}};
    summary["space"] = QJsonObject{{"needed", static_cast<double>(space.needed)},
                                   {"free", static_cast<double>(space.free)},
                                   {"folder", QString::fromStdString(space.folder)}};
    summary["model"] = o.modelOut.empty() ? QJsonValue() : QJsonValue(QString::fromStdString(o.modelOut));
    return QJsonDocument(summary).toJson(QJsonDocument::Indented).toStdString();
}

std::string FormatSummary(const RunReport& report, const Options& o) {
    const ResultSummary& s = report.summary;
    const std::int64_t valid = Valid(report);
    std::ostringstream out;
    char line[256];
    const int found = s.ClassesFound();
    if (o.apply.empty())
        std::snprintf(line, sizeof line, "%d %s found (%d requested) in %.1f s.\n", found,
                      found == 1 ? "class" : "classes", o.classes, report.seconds);
    else
        std::snprintf(line, sizeof line, "%d %s of '%s' applied in %.1f s.\n", found, found == 1 ? "class" : "classes",
                      o.apply.c_str(), report.seconds);
    out << line;
    out << "  class      pixels   share  colour (RGB)  name\n";
    for (const ClassCount& c : s.classes) {
        char colour[64];
        if (c.hasColour)
            std::snprintf(colour, sizeof colour, "%3d %3d %3d  ", c.red, c.green, c.blue);
        else
            std::snprintf(colour, sizeof colour, "%-13s", "-");
        std::snprintf(line, sizeof line, "  %5d %11lld  %6s  %s %s\n", c.value, static_cast<long long>(c.pixels),
                      Percent(c.pixels, valid).c_str(), colour, c.name.c_str());
        out << line;
    }
    StatisticsTable(out, report);
    out << "Unclassified: " << UnclassifiedValid(report) << " pixels (" << Percent(UnclassifiedValid(report), valid)
        << ")\n";
    if (report.figures.excludedPixels > 0) {
        out << "Excluded:     " << report.figures.excludedPixels << " pixels ("
            << Percent(report.figures.excludedPixels, Total(s)) << " of all; ";
        for (std::size_t i = 0; i < report.figures.excludedBy.size(); ++i)
            out << (i ? ", " : "") << report.figures.excludedBy[i].first << " " << report.figures.excludedBy[i].second;
        out << "), 0 in the result\n";
    }
    out << "Result:  " << o.output << " (" << o.format << ", " << s.width << " x " << s.height;
    if (o.format == "ENVI") out << ", header " << isodata::EnviHeaderPath(o.output);
    out << ")\n";
    if (report.outcome == RunOutcome::Ok && !o.previewPath.empty()) out << "Preview: " << o.previewPath << "\n";
    if (!o.modelOut.empty()) out << "Model:   " << o.modelOut << "\n";
    return out.str();
}

std::vector<std::string> Warnings(const RunReport& report) {
    std::vector<std::string> warnings;
    const RunFigures& f = report.figures;
    if (f.beyondReach > 0)
        warnings.push_back(std::to_string(f.beyondReach) +
                           " valid pixels are left unclassified because every class centre lies 1e7 or more from "
                           "them: values too large for the labelling; rescale the input");
    if (f.nonFinite > 0)
        warnings.push_back(std::to_string(f.nonFinite) +
                           " pixels holding NaN or infinite values are left unclassified, and took part in the "
                           "clustering (without -srcnodata None they are left out)");
    return warnings;
}

} // namespace isodata_cli

// A run's report as JSON, the form in which the child hands it to the
// parent through shared memory. Every field crosses; non-finite statistics
// cross as null and come back as NaN.
#include "Figures.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace isodata_run {
namespace {

QJsonArray Numbers(const std::vector<double>& values) {
    QJsonArray a;
    for (double v : values) a.append(std::isfinite(v) ? QJsonValue(v) : QJsonValue());
    return a;
}

std::vector<double> FromNumbers(const QJsonValue& value) {
    std::vector<double> out;
    for (const QJsonValue& v : value.toArray()) out.push_back(v.isDouble() ? v.toDouble() : std::nan(""));
    return out;
}

QString Text(const std::string& s) { return QString::fromStdString(s); }
std::string Text(const QJsonValue& v) { return v.toString().toStdString(); }
double Count(std::int64_t n) { return static_cast<double>(n); }
std::int64_t Count(const QJsonValue& v) { return static_cast<std::int64_t>(v.toDouble()); }

QJsonArray RemediesJson(const std::vector<Remedy>& remedies) {
    QJsonArray a;
    for (const Remedy& r : remedies) a.append(QJsonArray{static_cast<int>(r.field), Text(r.how)});
    return a;
}

std::vector<Remedy> RemediesFrom(const QJsonValue& value) {
    std::vector<Remedy> remedies;
    for (const QJsonValue& r : value.toArray()) remedies.push_back({static_cast<AskField>(r[0].toInt()), Text(r[1])});
    return remedies;
}

QJsonObject ClassJson(const ClassReport& c) {
    return {{"value", c.value},   {"name", Text(c.name)},          {"has_colour", c.hasColour},
            {"red", c.red},       {"green", c.green},              {"blue", c.blue},
            {"pixels", Count(c.pixels)}, {"centre", Numbers(c.centre)}, {"mean", Numbers(c.mean)},
            {"stddev", Numbers(c.stddev)}, {"covariance", Numbers(c.covariance)}};
}

ClassReport ClassFrom(const QJsonValue& v) {
    return {v["value"].toInt(),  Text(v["name"]),           v["has_colour"].toBool(), v["red"].toInt(),
            v["green"].toInt(),  v["blue"].toInt(),         Count(v["pixels"]),       FromNumbers(v["centre"]),
            FromNumbers(v["mean"]), FromNumbers(v["stddev"]), FromNumbers(v["covariance"])};
}

QJsonObject IterationJson(const IterationReport& it) {
    QJsonArray merged;
    for (const auto& [a, b] : it.merged) merged.append(QJsonArray{a, b});
    return {{"round", Count(it.round)}, {"removed", it.removed}, {"split", it.split}, {"merged", merged},
            {"classes", it.classes},    {"mean_distance", std::isfinite(it.meanDistance) ? QJsonValue(it.meanDistance) : QJsonValue()}};
}

IterationReport IterationFrom(const QJsonValue& v) {
    IterationReport it{Count(v["round"]), v["removed"].toInt(), v["split"].toInt(), {}, v["classes"].toInt(),
                       v["mean_distance"].isDouble() ? v["mean_distance"].toDouble() : std::nan("")};
    for (const QJsonValue& pair : v["merged"].toArray()) it.merged.emplace_back(pair[0].toInt(), pair[1].toInt());
    return it;
}

} // namespace

std::string ReportJson(const RunReport& r) {
    QJsonArray classes, by, warnings, errors, files, iterations;
    for (const ClassReport& c : r.classes) classes.append(ClassJson(c));
    for (const IterationReport& it : r.iterations) iterations.append(IterationJson(it));
    QJsonArray separability;
    for (const std::vector<double>& row : r.separability) separability.append(Numbers(row));
    for (const auto& [rule, pixels] : r.excludedBy) by.append(QJsonArray{Text(rule), Count(pixels)});
    for (const Notice& w : r.warnings) warnings.append(QJsonArray{Text(w.message), RemediesJson(w.remedies)});
    for (const std::string& e : r.gdalErrors) errors.append(Text(e));
    for (const std::string& f : r.filesWritten) files.append(Text(f));
    const QJsonObject o{{"outcome", static_cast<int>(r.outcome)}, {"message", Text(r.message)},
                        {"remedies", RemediesJson(r.remedies)},   {"width", r.width},
                        {"height", r.height},                     {"classes", classes},
                        {"unclassified", Count(r.unclassified)},  {"figures_known", r.figuresKnown},
                        {"excluded", Count(r.excludedPixels)},    {"by", by},
                        {"background", Count(r.background)},      {"non_finite", Count(r.nonFinite)},
                        {"beyond_reach", Count(r.beyondReach)},   {"zero", Count(r.zeroPixels)},
                        {"pixel_area", r.pixelArea},              {"iterations", iterations},
                        {"separability_measure", Text(r.separabilityMeasure)},
                        {"separability", separability},
                        {"separability_threshold", r.separabilityThreshold},
                        {"separability_maximum", r.separabilityMaximum},
                        {"warnings", warnings},                   {"seconds", r.seconds},
                        {"gdal_failures", r.gdalFailures},        {"gdal_errors", errors},
                        {"files", files}};
    return QJsonDocument(o).toJson(QJsonDocument::Compact).toStdString();
}

RunReport ReportFromJson(const std::string& json) {
    const QJsonObject o = QJsonDocument::fromJson(QByteArray::fromStdString(json)).object();
    RunReport r;
    r.outcome = static_cast<RunOutcome>(o["outcome"].toInt(static_cast<int>(RunOutcome::ClassificationFailed)));
    r.message = Text(o["message"]);
    r.remedies = RemediesFrom(o["remedies"]);
    r.width = o["width"].toInt();
    r.height = o["height"].toInt();
    for (const QJsonValue& c : o["classes"].toArray()) r.classes.push_back(ClassFrom(c));
    r.unclassified = Count(o["unclassified"]);
    r.figuresKnown = o["figures_known"].toBool();
    r.excludedPixels = Count(o["excluded"]);
    for (const QJsonValue& rule : o["by"].toArray()) r.excludedBy.emplace_back(Text(rule[0]), Count(rule[1]));
    r.background = Count(o["background"]);
    r.nonFinite = Count(o["non_finite"]);
    r.beyondReach = Count(o["beyond_reach"]);
    r.zeroPixels = Count(o["zero"]);
    r.pixelArea = o["pixel_area"].toDouble();
    for (const QJsonValue& it : o["iterations"].toArray()) r.iterations.push_back(IterationFrom(it));
    r.separabilityMeasure = Text(o["separability_measure"]);
    for (const QJsonValue& row : o["separability"].toArray()) r.separability.push_back(FromNumbers(row));
    r.separabilityThreshold = o["separability_threshold"].toDouble();
    r.separabilityMaximum = o["separability_maximum"].toDouble();
    for (const QJsonValue& w : o["warnings"].toArray()) r.warnings.push_back({Text(w[0]), RemediesFrom(w[1])});
    r.seconds = o["seconds"].toDouble();
    r.gdalFailures = o["gdal_failures"].toInt();
    for (const QJsonValue& e : o["gdal_errors"].toArray()) r.gdalErrors.push_back(Text(e));
    for (const QJsonValue& f : o["files"].toArray()) r.filesWritten.push_back(Text(f));
    return r;
}

} // namespace isodata_run

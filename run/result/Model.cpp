// Model files through Qt's JSON classes.
//
// Centres must read back to the very doubles that were written: each is
// written twice, as a number in the shortest form that reads back to the
// same double (Qt's way with numbers) and as a C hexadecimal float, and the
// hexadecimal one is read when it is there.
// NaN (the statistics of a class without pixels) is written as null.
#include "Model.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace isodata_run {
namespace {

QString Text(const std::string& s) { return QString::fromStdString(s); }

QJsonValue Number(double v) { return std::isfinite(v) ? QJsonValue(v) : QJsonValue(); }

QJsonArray Numbers(const std::vector<double>& values) {
    QJsonArray a;
    for (double v : values) a.append(Number(v));
    return a;
}

QJsonArray Hex(const std::vector<double>& values) {
    QJsonArray a;
    for (double v : values) {
        char text[64];
        std::snprintf(text, sizeof text, "%a", v);
        a.append(QString::fromLatin1(text));
    }
    return a;
}

QJsonObject MaskJson(const MaskSettings& m) {
    const char* nodata = m.nodata == MaskSettings::Nodata::Declared ? "declared"
                         : m.nodata == MaskSettings::Nodata::Ignored ? "none"
                                                                     : "given";
    return {{"nodata", nodata},
            {"nodata_values", Numbers(m.nodataValues)},
            {"dataset_masks", m.datasetMasks},
            {"non_finite", m.nonFinite},
            {"mask_raster", m.maskRaster.empty() ? QJsonValue() : QJsonValue(Text(m.maskRaster))}};
}

QJsonObject ClassJson(const ModelClass& c, double pixelArea) {
    QJsonObject o{{"value", c.value},
                  {"name", Text(c.name)},
                  {"centre", Numbers(c.centre)},
                  {"centre_hex", Hex(c.centre)},
                  {"pixels", static_cast<double>(c.pixels)},
                  {"area", pixelArea > 0 ? QJsonValue(pixelArea * static_cast<double>(c.pixels)) : QJsonValue()},
                  {"mean", c.mean.empty() ? QJsonValue() : QJsonValue(Numbers(c.mean))},
                  {"stddev", c.stddev.empty() ? QJsonValue() : QJsonValue(Numbers(c.stddev))}};
    o["colour"] = c.hasColour ? QJsonValue(QJsonArray{c.red, c.green, c.blue}) : QJsonValue();
    return o;
}

std::vector<double> ReadNumbers(const QJsonValue& value) {
    std::vector<double> out;
    for (const QJsonValue& v : value.toArray()) out.push_back(v.isDouble() ? v.toDouble() : std::nan(""));
    return out;
}

// The centre as written: finite JSON numbers, one per band, read from their
// hexadecimal form when there is one, which must be the same number.
// Otherwise what is wrong with it.
std::string ReadCentre(const QJsonObject& o, std::size_t bands, std::vector<double>& centre) {
    centre.clear();
    const QJsonArray numbers = o["centre"].toArray();
    for (const QJsonValue& v : numbers) {
        if (!v.isDouble()) return "holds something other than a number";
        centre.push_back(v.toDouble());
    }
    if (centre.size() != bands) return "is not one number per band";
    const QJsonArray hex = o["centre_hex"].toArray();
    if (!hex.isEmpty() && static_cast<std::size_t>(hex.size()) != bands) return "has a hexadecimal form of another length";
    for (int i = 0; i < hex.size(); ++i) {
        const QByteArray text = hex[i].toString().toLatin1();
        char* end = nullptr;
        const double exact = std::strtod(text.constData(), &end);
        // The decimal form is the shortest that reads back to the same double.
        if (text.isEmpty() || *end != '\0' || exact != centre[static_cast<std::size_t>(i)])
            return "has a hexadecimal form that is not its number";
        centre[static_cast<std::size_t>(i)] = exact;
    }
    for (double v : centre)
        if (!std::isfinite(v)) return "is not finite";
    return {};
}

// A colour as written: three whole numbers 0..255, or nothing.
bool ReadColour(const QJsonValue& value, ModelClass& c) {
    if (value.isNull() || value.isUndefined()) return true;
    const QJsonArray colour = value.toArray();
    if (colour.size() != 3) return false;
    int* parts[] = {&c.red, &c.green, &c.blue};
    for (int i = 0; i < 3; ++i) {
        const double v = colour[i].toDouble(-1.0);
        if (!colour[i].isDouble() || v < 0 || v > 255 || v != std::floor(v)) return false;
        *parts[i] = static_cast<int>(v);
    }
    c.hasColour = true;
    return true;
}

bool ReadMask(const QJsonObject& o, MaskSettings& m) {
    const QString nodata = o["nodata"].toString();
    if (nodata == "declared") m.nodata = MaskSettings::Nodata::Declared;
    else if (nodata == "none") m.nodata = MaskSettings::Nodata::Ignored;
    else if (nodata == "given") m.nodata = MaskSettings::Nodata::Given;
    else return false;
    m.on = true;
    m.nodataValues = ReadNumbers(o["nodata_values"]);
    m.datasetMasks = o["dataset_masks"].toBool(true);
    m.nonFinite = o["non_finite"].toBool(true);
    m.maskRaster = o["mask_raster"].toString().toStdString();
    return true;
}

} // namespace

bool WriteModel(const std::string& path, const Model& m, std::string& error) {
    QJsonArray bands, classes;
    for (const ModelBand& b : m.bands)
        bands.append(QJsonObject{{"band", b.band}, {"description", Text(b.description)}, {"data_type", Text(b.dataType)}});
    for (const ModelClass& c : m.classes) classes.append(ClassJson(c, m.pixelArea));
    QJsonObject parameters;
    if (!m.parametersJson.empty())
        parameters = QJsonDocument::fromJson(QByteArray::fromStdString(m.parametersJson)).object();
    QJsonObject root{{"format", kModelFormat},
                           {"version", kModelVersion},
                           {"tool", Text(m.tool)},
                           {"input", QJsonObject{{"path", Text(m.inputPath)},
                                                 {"size", QJsonArray{m.width, m.height}},
                                                 {"band_count", m.bandCount},
                                                 {"bands", bands}}},
                           {"engine_pixel_type", Text(m.enginePixelType)},
                           {"mask", MaskJson(m.mask)},
                           {"plain_rules", m.plainRules},
                           {"parameters", parameters},
                           {"pixel_area", m.pixelArea > 0 ? QJsonValue(m.pixelArea) : QJsonValue()},
                           {"classes", classes}};
    if (!m.separability.empty()) {
        QJsonArray matrix;
        for (const std::vector<double>& row : m.separability) matrix.append(Numbers(row));
        root["separability"] = QJsonObject{{"measure", Text(m.separabilityMeasure)}, {"matrix", matrix}};
    }
    QFile file(QString::fromStdString(path));
    const QByteArray bytes = QJsonDocument(root).toJson(QJsonDocument::Indented);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size() || !file.flush()) {
        error = "cannot write the model file '" + path + "': " + file.errorString().toStdString();
        return false;
    }
    return true;
}

bool ReadModel(const std::string& path, Model& m, std::string& error) {
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly)) {
        error = "model '" + path + "' cannot be read: " + file.errorString().toStdString();
        return false;
    }
    QJsonParseError parse{};
    const QJsonObject root = QJsonDocument::fromJson(file.readAll(), &parse).object();
    const auto Bad = [&](const std::string& why) {
        error = "model '" + path + "' " + why;
        return false;
    };
    if (parse.error != QJsonParseError::NoError) return Bad("is not JSON: " + parse.errorString().toStdString());
    if (root["format"].toString() != kModelFormat) return Bad("is not an isodata model file");
    const QJsonValue version = root["version"];
    if (!version.isDouble())
        return Bad("has a \"version\" that is not a number (version " + std::to_string(kModelVersion) +
                   " is written as " + std::to_string(kModelVersion) + ")");
    if (version.toDouble() != kModelVersion)
        return Bad("is of format version " + QString::number(version.toDouble()).toStdString() +
                   ", which this isodata does not know (it reads version " + std::to_string(kModelVersion) + ")");
    m = Model();
    m.tool = root["tool"].toString().toStdString();
    const QJsonObject input = root["input"].toObject();
    m.inputPath = input["path"].toString().toStdString();
    m.width = input["size"].toArray()[0].toInt();
    m.height = input["size"].toArray()[1].toInt();
    m.bandCount = input["band_count"].toInt();
    for (const QJsonValue& b : input["bands"].toArray())
        m.bands.push_back({b["band"].toInt(), b["description"].toString().toStdString(),
                           b["data_type"].toString().toStdString()});
    m.enginePixelType = root["engine_pixel_type"].toString().toStdString();
    if (!ReadMask(root["mask"].toObject(), m.mask)) return Bad("has no valid \"mask\" rule");
    m.plainRules = root["plain_rules"].toBool(true);
    m.pixelArea = root["pixel_area"].toDouble(0.0);
    const QJsonArray classes = root["classes"].toArray();
    if (classes.size() > kMaxModelClasses)
        return Bad("has " + std::to_string(classes.size()) + " classes; a class raster holds at most " +
                   std::to_string(kMaxModelClasses));
    for (const QJsonValue& v : classes) {
        const QJsonObject o = v.toObject();
        ModelClass c;
        c.value = o["value"].toInt();
        c.name = o["name"].toString().toStdString();
        const std::string named = "has a class " + std::to_string(c.value);
        if (!ReadColour(o["colour"], c)) return Bad(named + " whose colour is not three numbers from 0 to 255");
        if (std::string why = ReadCentre(o, m.bands.size(), c.centre); !why.empty())
            return Bad(named + " whose centre " + why);
        c.pixels = static_cast<std::int64_t>(o["pixels"].toDouble());
        m.classes.push_back(c);
    }
    if (m.bands.empty() || m.classes.empty()) return Bad("names no bands or no classes");
    return true;
}

} // namespace isodata_run

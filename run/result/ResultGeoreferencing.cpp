// Ground control points and the ENVI header's description.
//
//  1. The points go into the result's .aux.xml as GDAL's own GCPList
//     element, which a VRT holding them serialises for us, merged into an
//     .aux.xml that is already there; the ENVI driver reads them from it.
//  2. The header's "description = {...}" block is rewritten in place; the
//     rest of the header stays as GDAL wrote it.
#include "ResultGeoreferencing.h"

#include <FileNames.h>
#include <GdalSession.h>

#include <cpl_minixml.h>
#include <gdal_priv.h>

#include <fstream>
#include <sstream>

namespace isodata_run {
namespace {

// GDAL's GCPList element for the points and reference of source.
CPLXMLNode* GcpList(GDALDataset& source) {
    GDALDriver* vrt = GetGDALDriverManager()->GetDriverByName("VRT");
    const GDALDatasetUniquePtr holder(vrt ? vrt->Create("", 1, 1, 0, GDT_Byte, nullptr) : nullptr);
    if (!holder || holder->SetGCPs(source.GetGCPCount(), source.GetGCPs(), source.GetGCPSpatialRef()) != CE_None)
        return nullptr;
    char** xml = holder->GetMetadata("xml:VRT");
    const CPLXMLTreeCloser tree(xml && xml[0] ? CPLParseXMLString(xml[0]) : nullptr);
    const CPLXMLNode* list = tree ? CPLGetXMLNode(tree.get(), "=VRTDataset.GCPList") : nullptr;
    return list ? CPLCloneXMLTree(list) : nullptr;
}

} // namespace

bool CarryGcps(const std::string& input, const std::string& result, std::string& error) {
    CPLErrorReset();
    const isodata::QuietGdalErrors quiet;
    const GDALDatasetUniquePtr source(GDALDataset::Open(input.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    double transform[6];
    if (!source || source->GetGeoTransform(transform) == CE_None || source->GetGCPCount() == 0) return true;
    const std::string aux = isodata::AuxXmlPath(result);
    CPLXMLTreeCloser tree(CPLParseXMLFile(aux.c_str()));  // null when there is none yet
    if (!tree) tree.reset(CPLCreateXMLNode(nullptr, CXT_Element, "PAMDataset"));
    CPLXMLNode* list = GcpList(*source);
    if (list) {
        if (CPLXMLNode* old = CPLGetXMLNode(tree.get(), "GCPList")) {
            CPLRemoveXMLChild(tree.get(), old);
            CPLDestroyXMLNode(old);
        }
        CPLAddXMLChild(tree.get(), list);
    }
    if (!list || !CPLSerializeXMLTreeToFile(tree.get(), aux.c_str())) {
        error = "cannot give the result the input's ground control points: " + std::string(CPLGetLastErrorMsg());
        return false;
    }
    return true;
}

bool NameEnviHeader(const std::string& raster, const std::string& name, std::string& error) {
    const std::string header = isodata::EnviHeaderPath(raster);
    std::ostringstream text;
    text << std::ifstream(header).rdbuf();
    std::string content = text.str();
    const size_t start = content.find("description = {");
    const size_t end = start == std::string::npos ? start : content.find('}', start);
    if (end == std::string::npos) return true;  // nothing names a path
    content.replace(start, end - start + 1, "description = {\n" + name + "}");
    std::ofstream out(header, std::ios::trunc);
    out << content;
    if (out.flush()) return true;
    error = "cannot write the ENVI header '" + header + "'";
    return false;
}

bool CarryClassLooks(const std::string& raster, const std::vector<ClassLook>& looks, std::string& error) {
    if (looks.empty()) return true;
    GDALDatasetUniquePtr ds(GDALDataset::Open(raster.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    GDALRasterBand* band = ds && ds->GetRasterCount() > 0 ? ds->GetRasterBand(1) : nullptr;
    if (!band) {
        error = "cannot give the classes the model's names and colours: the result cannot be opened";
        return false;
    }
    CPLStringList names(CSLDuplicate(band->GetCategoryNames()));
    GDALColorTable colours = band->GetColorTable() ? *band->GetColorTable() : GDALColorTable();
    bool changed = false;
    for (std::size_t k = 0; k < looks.size(); ++k) {
        const int value = static_cast<int>(k) + 1;
        const ClassLook& look = looks[k];
        while (names.size() <= value) names.AddString("");
        if (!look.name.empty() && look.name != names[value]) {
            CPLFree(names.List()[value]);
            names.List()[value] = CPLStrdup(look.name.c_str());
            changed = true;
        }
        const GDALColorEntry* now = colours.GetColorEntry(value);
        const GDALColorEntry wanted{static_cast<short>(look.red), static_cast<short>(look.green),
                                    static_cast<short>(look.blue), 255};
        if (look.hasColour && (!now || now->c1 != wanted.c1 || now->c2 != wanted.c2 || now->c3 != wanted.c3)) {
            colours.SetColorEntry(value, &wanted);
            changed = true;
        }
    }
    if (!changed) return true;
    // GDAL's ENVI driver writes the names and colours it is given as the
    // header's classes, and would keep the header's old entries beside them.
    for (const char* key : {"classes", "class_lookup", "class_names"})
        if (ds->GetMetadataItem(key, "ENVI")) ds->SetMetadataItem(key, nullptr, "ENVI");
    if (band->SetCategoryNames(names.List()) != CE_None || band->SetColorTable(&colours) != CE_None) {
        error = std::string("cannot give the classes the model's names and colours: ") + CPLGetLastErrorMsg();
        return false;
    }
    return true;
}

} // namespace isodata_run

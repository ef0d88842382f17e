// Input names and their anchoring.
//
//  1. A subdataset name is split at its quotes, or else at the colons around
//     the first part that names an existing file.
//  2. Anchoring makes the file of a name absolute, whatever wraps it.
//  3. A VRT copy anchors every SourceFilename and SourceDataset element,
//     relative to the VRT's folder where relativeToVRT says so, else to the
//     current folder, as GDAL reads them.
//  4. A wrapper VRT is GDAL's own copy of the opened dataset in VRT form.
#include "InputNames.h"

#include "Paths.h"

#include <GdalSession.h>

#include <cpl_minixml.h>
#include <cpl_string.h>
#include <gdal_priv.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace fs = std::filesystem;

namespace isodata_run {
namespace {

// The driver prefix ends at the first colon; 0 when there is none.
size_t PrefixEnd(const std::string& name) {
    const size_t colon = name.find(':');
    if (colon == std::string::npos || colon == 0 || !std::isupper(static_cast<unsigned char>(name[0]))) return 0;
    for (size_t i = 0; i < colon; ++i) {
        const unsigned char c = static_cast<unsigned char>(name[i]);
        if (!std::isupper(c) && !std::isdigit(c) && c != '_') return 0;
    }
    return colon;
}

std::string Within(const std::string& base, const std::string& name) {
    return base.empty() ? name : (fs::path(base) / name).string();
}

std::optional<SubdatasetName> Split(const std::string& name, const std::string& base) {
    const size_t prefixEnd = PrefixEnd(name);
    if (prefixEnd == 0 || Exists(Within(base, name))) return std::nullopt;
    const size_t open = name.find('"', prefixEnd);
    if (open != std::string::npos) {
        const size_t close = name.find('"', open + 1);
        if (close == std::string::npos) return std::nullopt;
        return SubdatasetName{name.substr(0, open + 1), name.substr(open + 1, close - open - 1), name.substr(close)};
    }
    // Unquoted: the longest run of colon-separated parts, leftmost first,
    // that names a file (GTIFF_DIR:2:scene.tif, HDF5:x.h5://sst).
    std::vector<size_t> colons;
    for (size_t at = prefixEnd; at != std::string::npos; at = name.find(':', at + 1)) colons.push_back(at);
    colons.push_back(name.size());
    for (size_t a = 0; a + 1 < colons.size(); ++a)
        for (size_t b = colons.size() - 1; b > a; --b) {
            const std::string file = name.substr(colons[a] + 1, colons[b] - colons[a] - 1);
            if (!file.empty() && Exists(Within(base, file)))
                return SubdatasetName{name.substr(0, colons[a] + 1), file, name.substr(colons[b])};
        }
    return std::nullopt;
}

// The archive inside /vsizip/scene.zip/a.tif and the like. Only archive
// handlers go on with a file of this system: /vsis3/bucket/a.tif or
// /vsimem/a.tif name none, and stay as they are.
std::string AnchoredVirtual(const std::string& name, const std::string& base) {
    const size_t slash = name.find('/', 1);
    if (slash == std::string::npos || slash + 1 >= name.size() || name[slash + 1] == '/') return name;
    const std::string handler = name.substr(0, slash + 1);
    const char* const archives[] = {"/vsizip/", "/vsigzip/", "/vsitar/", "/vsi7z/", "/vsirar/"};
    if (std::find(std::begin(archives), std::end(archives), handler) == std::end(archives)) return name;
    const std::string inner = name.substr(slash + 1);
    return name.substr(0, slash + 1) + Anchored(inner, base);
}

// GDAL spells the attribute relativeToVRT, and relativetoVRT for raw bands.
CPLXMLNode* RelativeAttribute(CPLXMLNode* element) {
    for (CPLXMLNode* n = element->psChild; n; n = n->psNext)
        if (n->eType == CXT_Attribute && EQUAL(n->pszValue, "relativeToVRT")) return n;
    return nullptr;
}

void SetText(CPLXMLNode* node, const std::string& text) {
    CPLFree(node->pszValue);
    node->pszValue = CPLStrdup(text.c_str());
}

void AnchorSources(CPLXMLNode* first, const std::string& vrtFolder) {
    for (CPLXMLNode* n = first; n; n = n->psNext) {
        if (n->eType != CXT_Element) continue;
        if (EQUAL(n->pszValue, "SourceFilename") || EQUAL(n->pszValue, "SourceDataset")) {
            CPLXMLNode* text = n->psChild;
            while (text && text->eType != CXT_Text) text = text->psNext;
            CPLXMLNode* relative = RelativeAttribute(n);
            const bool toVrt = relative && relative->psChild && CPLTestBool(relative->psChild->pszValue);
            if (text) {
                // GDAL never joins a virtual path to the VRT's folder.
                SetText(text, Anchored(text->pszValue, toVrt && !IsVirtualPath(text->pszValue) ? vrtFolder : ""));
                if (relative && relative->psChild) SetText(relative->psChild, "0");
            }
            continue;
        }
        AnchorSources(n->psChild, vrtFolder);
    }
}

} // namespace

std::optional<SubdatasetName> SplitSubdatasetName(const std::string& name) { return Split(name, std::string()); }

std::string Anchored(const std::string& name, const std::string& base) {
    if (name.empty()) return name;
    if (IsVirtualPath(name)) return AnchoredVirtual(name, base);
    // Before the URL test: HDF5:"x.h5"://sst holds "://" too.
    if (const auto sub = Split(name, base)) return sub->With(Anchored(sub->file, base));
    if (name.find("://") != std::string::npos || fs::path(name).is_absolute()) return name;
    return fs::absolute(Within(base, name)).lexically_normal().string();
}

bool CopyVrtWithAnchoredSources(const std::string& vrt, const std::string& copy, std::string& error) {
    CPLErrorReset();
    const isodata::QuietGdalErrors quiet;
    const CPLXMLTreeCloser tree(CPLParseXMLFile(vrt.c_str()));
    if (tree) AnchorSources(tree.get(), fs::absolute(FolderOf(vrt)).lexically_normal().string());
    if (!tree || !CPLSerializeXMLTreeToFile(tree.get(), copy.c_str())) {
        error = "cannot copy the VRT '" + vrt + "' into the run folder: " + CPLGetLastErrorMsg();
        return false;
    }
    return true;
}

bool WrapInVrt(const std::string& name, const std::vector<std::string>& openOptions, const std::string& path,
               std::string& error) {
    CPLStringList options;
    for (const std::string& option : openOptions) options.AddString(option.c_str());
    CPLErrorReset();
    const isodata::QuietGdalErrors quiet;
    const GDALDatasetUniquePtr source(
        GDALDataset::Open(name.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, options.List()));
    GDALDriver* vrt = GetGDALDriverManager()->GetDriverByName("VRT");
    const GDALDatasetUniquePtr copy(
        source && vrt ? vrt->CreateCopy(path.c_str(), source.get(), FALSE, nullptr, nullptr, nullptr) : nullptr);
    if (!copy) {
        error = "cannot refer to '" + name + "' from the run folder: " + CPLGetLastErrorMsg();
        return false;
    }
    return true;
}

} // namespace isodata_run

// The file-name rules of FileNames.h, each written once; the std::string
// forms of the plug-in's names go through the QString ones, as the plug-in
// itself sees the path.
#include "FileNames.h"

namespace isodata {

QString CutAtLastDot(const QString& path) {
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    return dot < 0 ? path : path.left(dot);
}

QString WorkingCopyPath(const QString& inputPath) { return inputPath + QStringLiteral("tem.tif"); }

std::string WorkingCopyPath(const std::string& inputPath) {
    return WorkingCopyPath(QString::fromStdString(inputPath)).toStdString();
}

QString WorkingMaskPath(const QString& inputPath) { return inputPath + QStringLiteral("temmask.tif"); }

QString ScratchFilePath(const QString& inputPath, std::uint64_t k) {
    return CutAtLastDot(inputPath) + QString::number(k) + QStringLiteral(".km");
}

std::string ScratchFilePath(const std::string& inputPath, std::uint64_t k) {
    return ScratchFilePath(QString::fromStdString(inputPath), k).toStdString();
}

std::string WithoutExtension(const std::string& path) {
    for (std::size_t i = path.size(); i-- > 1;) {
        if (path[i] == '.') return path.substr(0, i);
        if (path[i] == '/' || path[i] == '\\' || path[i] == ':') break;
    }
    return path;
}

std::string EnviHeaderPath(const std::string& rasterPath) { return WithoutExtension(rasterPath) + ".hdr"; }

RpcSideFiles RpcSideFilePaths(const std::string& rasterPath) {
    const std::string base = WithoutExtension(rasterPath);
    return {base + "_rpc.txt", base + ".rpb"};
}

std::string AuxXmlPath(const std::string& rasterPath) { return rasterPath + ".aux.xml"; }

} // namespace isodata

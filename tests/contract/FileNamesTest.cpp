// The names of a run's files: worked out by hand for the awkward paths, and
// checked against the files GDAL's ENVI driver and the host actually write.
#include "FileNames.h"
#include "support/TestSupport.h"

#include <KalDataSource.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <tuple>

namespace {

TEST(FileNamesTest, PluginNamesCutTheWholePathOthersOnlyTheFileName) {
    // path: working copy, scratch file 2, ENVI header, RPC text and .rpb.
    const std::tuple<std::string, std::string, std::string, std::string, std::string, std::string> cases[] = {
        {"d/scene.tif", "d/scene.tiftem.tif", "d/scene2.km", "d/scene.hdr", "d/scene_rpc.txt", "d/scene.rpb"},
        {"a.b/scene", "a.b/scenetem.tif", "a2.km", "a.b/scene.hdr", "a.b/scene_rpc.txt", "a.b/scene.rpb"},
        {"scene", "scenetem.tif", "scene2.km", "scene.hdr", "scene_rpc.txt", "scene.rpb"},
        {"d/x.tar.gz", "d/x.tar.gztem.tif", "d/x.tar2.km", "d/x.tar.hdr", "d/x.tar_rpc.txt", "d/x.tar.rpb"}};
    for (const auto& [path, working, scratch, header, text, rpb] : cases) {
        const isodata::RpcSideFiles rpc = isodata::RpcSideFilePaths(path);
        EXPECT_EQ(std::make_tuple(isodata::WorkingCopyPath(path), isodata::ScratchFilePath(path, 2),
                                  isodata::EnviHeaderPath(path), rpc.text, rpc.rpb),
                  std::make_tuple(working, scratch, header, text, rpb));
    }
    EXPECT_EQ(isodata::AuxXmlPath("d/scene.img"), "d/scene.img.aux.xml");
}

TEST(FileNamesTest, HeaderAndRpcNamesAreTheFilesGdalAndTheHostWrite) {
    testsupport::TempDir dir;
    const std::string folder = dir.File("v1.2");  // a dot in the folder is no extension
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/scene.rpb") << "rpb\n";
    std::ofstream(folder + "/scene_rpc.txt") << "txt\n";
    auto& factory = *KalDataSource::DatasetFactory::Instance();
    for (const std::string name : {"/classes", "/classes.dat"}) {
        const std::string raster = folder + name;
        factory.CreateRasterDataset(QString::fromStdString(raster), 2, 2, 1, KalDataSource::PDT_Byte, "ENVI");
        EXPECT_TRUE(KalDataSource::DatasetFactory::CopyRPCFile(QString::fromStdString(folder + "/scene.tif"),
                                                               QString::fromStdString(raster)));
        const isodata::RpcSideFiles rpc = isodata::RpcSideFilePaths(raster);
        EXPECT_TRUE(testsupport::FileExists(isodata::EnviHeaderPath(raster))) << raster;
        // The text file is the one copied when both exist.
        EXPECT_EQ(testsupport::ReadText(rpc.text), "txt\n") << raster;
        EXPECT_FALSE(testsupport::FileExists(rpc.rpb)) << raster;
    }
}

} // namespace

// Publishing a run's files: a move that fails half-way undoes the ones
// before it. Publishing across file systems runs end to end in the
// command's tests (a tmpfs --tmpdir).
#include "Publish.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace isodata_run;

namespace {

TEST(PublishTest, AFailedMoveUndoesTheOnesBefore) {
    testsupport::TempDir dir;
    for (const char* name : {"new1", "new2", "old1"}) std::ofstream(dir.File(name)) << name;
    const std::vector<Move> moves = {{dir.File("new1"), dir.File("old1")}, {dir.File("new2"), dir.File("no/x")}};
    Notice failure;
    // Replacing: the old file comes back. Not replacing: the existing one
    // stops everything, and overwriting is what would let it through.
    EXPECT_FALSE(Publish(moves, {}, true, failure));
    EXPECT_EQ(failure.message, "cannot move the result to '" + dir.File("no/x") + "': No such file or directory");
    EXPECT_FALSE(Publish({{dir.File("new2"), dir.File("fresh")}, moves[0]}, {}, false, failure));
    EXPECT_NE(failure.message.find("appeared while the run went on"), std::string::npos) << failure.message;
    ASSERT_EQ(failure.remedies.size(), 1u);
    EXPECT_EQ(failure.remedies[0].field, AskField::Overwrite);
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"new1", "new2", "old1"}));
    EXPECT_EQ(testsupport::ReadText(dir.File("old1")), "old1");
    EXPECT_EQ(testsupport::ReadText(dir.File("new1")), "new1");
}

} // namespace

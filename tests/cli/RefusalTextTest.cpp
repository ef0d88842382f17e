// How the command words the run library's refusals and remedies: every
// setting under its option's main name, the file names as "input" and
// "output", and the run as a whole with no name before the sentence.
#include "OptionTable.h"

#include <gtest/gtest.h>

using namespace isodata_run;

namespace {

TEST(RefusalTextTest, ARefusalIsOneLineUnderItsOptionsNameWithTheSettingsThatWouldHelp) {
    const struct { Refusal refusal; const char* line; } cases[] = {
        {{AskField::Bands, "7: input 'x' has only 6 bands", {}}, "-b 7: input 'x' has only 6 bands"},
        {{AskField::Output, "'a.img' already exists", {{AskField::Overwrite, "to replace it"}}},
         "output 'a.img' already exists (use -overwrite to replace it)"},
        {{AskField::Input, "'x' does not exist", {}}, "input 'x' does not exist"},
        {{AskField::CreationOptions, "refused: bad", {{AskField::Format, ""}}}, "-co refused: bad (use -of)"},
        {{AskField::None, "the run needs 3.0 MB in '/x', 1.0 MB free there",
          {{AskField::TmpDir, "to work on another file system"},
           {AskField::Memory, "of 3 MB or more, to keep the working copy in memory"}}},
         "the run needs 3.0 MB in '/x', 1.0 MB free there (use --tmpdir to work on another file system, or -mem of 3 "
         "MB or more, to keep the working copy in memory)"},
    };
    for (const auto& c : cases) EXPECT_EQ(isodata_cli::RefusalText(c.refusal), c.line);
    EXPECT_EQ(isodata_cli::WithRemedies("no pixel is valid", {}), "no pixel is valid");
    // The file names, a single-dash and a double-dash option, and the run as a whole.
    const std::pair<AskField, const char*> spellings[] = {{AskField::Input, "input"}, {AskField::Output, "output"},
        {AskField::Format, "-of"}, {AskField::TmpDir, "--tmpdir"}, {AskField::None, ""}};
    for (const auto& [field, spelling] : spellings) EXPECT_EQ(isodata_cli::Spelling(field), spelling);
}

} // namespace

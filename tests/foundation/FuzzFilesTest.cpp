// The fuzz targets' file harness (fuzz/FuzzFiles.h): inputs go under
// $TMPDIR, never the current folder, and are removed (issue 16: the targets
// left their inputs behind).

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "../../fuzz/FuzzFiles.h"
#include "support/TestSupport.h"

namespace quillet {
namespace {

namespace fs = std::filesystem;

TEST(FuzzFilesTest, FuzzTargetsLeftTheirInputsOutsideTmpdir) {
    test::TempDir tmp, work;
    // A child, so that $TMPDIR is read at its first use of the folder and
    // the folder goes at its exit, as in a fuzzing process.
    pid_t child = ::fork();
    if (child == 0) {
        if (::setenv("TMPDIR", tmp.path().c_str(), 1) != 0 || ::chdir(work.path().c_str()) != 0)
            ::_exit(10);
        const uint8_t bytes[] = {1, 2, 3};
        for (int input = 0; input < 3; ++input) {
            fuzz::InputScope scope;
            fuzz::WriteFile(fuzz::Folder() / "f.dbf", bytes, sizeof bytes);
            // As a side file the library makes.
            fuzz::WriteFile(fuzz::Folder() / "f.cpg", bytes, 1);
            if (fuzz::Folder().parent_path() != tmp.path()) ::_exit(11);
            if (!fs::exists(fuzz::Folder() / "f.dbf")) ::_exit(12);
        }
        if (!fs::is_empty(fuzz::Folder())) ::_exit(13);
        std::exit(0);  // as libFuzzer ends a run
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(fs::is_empty(tmp.path())) << "the folder was left in $TMPDIR";
    EXPECT_TRUE(fs::is_empty(work.path())) << "the target wrote into the current folder";
}

}  // namespace
}  // namespace quillet

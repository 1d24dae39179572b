// Tests that run the front end as a person would, in a folder of their own.
#pragma once

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "foundation/text.h"
#include "sim/service/pseudo_translate.h"
#include "slides/writeback.h"
#include "support/temp_dir.h"

namespace qb::test {

class CliFixture : public testing::Test {
  protected:
    std::string Path(const std::string& name) { return Utf16ToUtf8(dir_.Path()) + "/" + name; }

    // The exit status of `qb-translate ARGS`, with what it wrote to stderr.
    int RunCli(const std::string& args, std::string& err) {
        const std::string errPath = Path("stderr.txt");
        const int raw = std::system(
            (std::string(QB_CLI_PATH) + " " + args + " >/dev/null 2>" + errPath + " </dev/null")
                .c_str());
        err = ReadFileBytes(Utf8ToUtf16(errPath));
        return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    }

    // What the stand-in's translation into German writes back.
    static std::u16string T(std::u16string_view text) {
        return NormalizeTranslation(sim::PseudoTranslate(text, u"de"));
    }

    TempDir dir_;
};

}  // namespace qb::test

// Every suite runs with the known folders pointed into one temporary folder,
// so that no test writes into the user's own application data or registry.
#include <gtest/gtest.h>

#include "foundation/platform.h"
#include "support/temp_dir.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    qb::test::TempDir home;
    using qb::platform::KnownFolder;
    qb::platform::SetKnownFolderForTesting(KnownFolder::LocalAppData, home.Join(u"local"));
    qb::platform::SetKnownFolderForTesting(KnownFolder::RoamingAppData, home.Join(u"roaming"));
    qb::platform::MakeDirectory(home.Join(u"local"));
    qb::platform::MakeDirectory(home.Join(u"roaming"));
    return RUN_ALL_TESTS();
}

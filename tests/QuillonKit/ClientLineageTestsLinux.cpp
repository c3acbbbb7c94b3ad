// The Linux lineage probe: an executable path whose file is no longer the running image, with the
// suite's VERSION beside it, is a stale copy.
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>

#include "DoorTestSupport.hpp"
#include "QuillonBase/Process.hpp"
#include "QuillonKit/ClientLineage.hpp"

namespace quillon::kit {
namespace {

TEST(ClientLineageProbe, TheRunningExecutableIsUnremarkable) {
  EXPECT_EQ(ClientLineage::probe(base::executablePath()), std::nullopt);
  EXPECT_EQ(ClientLineage::probe(""), std::nullopt);
}

TEST(ClientLineageProbe, AnotherFileAtThePathWithTheSuiteVersionBesideItIsStale) {
  test::TempFolder temp;
  const std::string executable = temp.path() + "/quillon-mcp";
  std::ofstream(executable) << "new build";
  // No VERSION beside it: nothing says the new file is the suite's.
  EXPECT_EQ(ClientLineage::probe(executable), std::nullopt);

  std::ofstream(temp.path() + "/VERSION") << "2.4\n";
  EXPECT_EQ(ClientLineage::probe(executable), (ClientLineage{ClientLineage::Stale{"2.4"}}));
  // As /proc/self/exe names a replaced executable.
  EXPECT_EQ(ClientLineage::probe(executable + " (deleted)"), (ClientLineage{ClientLineage::Stale{"2.4"}}));
  // Deleted and not replaced: nothing there to judge.
  ::unlink(executable.c_str());
  EXPECT_EQ(ClientLineage::probe(executable), std::nullopt);
}

}  // namespace
}  // namespace quillon::kit

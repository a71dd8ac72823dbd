// The fuzz corpus as regression cases: every file of fuzz/corpus/<target>/
// goes through its target's check (fuzz/FuzzTarget.h), so that the normal
// build exercises the inputs that once found a fault without the fuzzer.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "fuzz/FuzzTarget.h"

namespace {

namespace fs = std::filesystem;

const fs::path corpus = IPRIB_FUZZ_CORPUS;

TEST(FuzzCorpus, EveryTargetHasACorpusAndEveryCorpusATarget) {
  std::set<std::string> folders, targets;
  for (const fs::directory_entry& d : fs::directory_iterator(corpus)) {
    folders.insert(d.path().filename().string());
  }
  for (const IpRibFuzz::FuzzTarget& t : IpRibFuzz::fuzzTargets()) targets.emplace(t.name);
  EXPECT_EQ(folders, targets);
}

class FuzzCorpusReplay : public ::testing::TestWithParam<std::string_view> {};

TEST_P(FuzzCorpusReplay, EveryInputPassesItsCheck) {
  const IpRibFuzz::FuzzTarget* target = IpRibFuzz::fuzzTarget(GetParam());
  ASSERT_NE(target, nullptr);
  const fs::path folder = corpus / std::string(GetParam());
  size_t inputs = 0;
  for (const fs::directory_entry& f : fs::directory_iterator(folder)) {
    std::ifstream in(f.path(), std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    try {
      target->check(text);
    } catch (const std::exception& e) {
      ADD_FAILURE() << f.path().filename() << ": " << e.what();
    }
    ++inputs;
  }
  EXPECT_GT(inputs, 0u) << folder;
}

std::vector<std::string_view> targetNames() {
  std::vector<std::string_view> names;
  for (const IpRibFuzz::FuzzTarget& t : IpRibFuzz::fuzzTargets()) names.push_back(t.name);
  return names;
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzCorpusReplay, ::testing::ValuesIn(targetNames()),
                         [](const auto& info) {
                           std::string name(info.param);
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace

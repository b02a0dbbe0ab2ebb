#include <infra/CFG_Factory.h>
#include <infra/Util_Cfg.h>
#include <infra/Util_FileSystem.h>
#include <support/LogCapture.h>
#include <support/TempDirectory.h>

#include <gtest/gtest.h>

namespace {

class Cfg : public testing::Test {
protected:
  ~Cfg() override { Util_Cfg::Clear(); }

  // Loads a text; `problems_` then holds what was wrong with it, without the name of the file.
  int load(std::string const& text) {
    std::string const path = directory_.Write("cfg.yaml", text);
    problems_.clear();
    int const result = Util_Cfg::Load(path.c_str(), &problems_);
    for (std::string& problem : problems_)
      problem.erase(0, path.size());
    return result;
  }

  // The value of a key of `push`, -12345 if there is none.
  static int integer(char const* key, char const* child = nullptr) {
    Tree_Node const* node = Util_Cfg::GetHandle() ? Util_Cfg::GetHandle()->GetPush() : nullptr;
    if (node && child) node = node->GetChild(child);
    std::unique_ptr<int> const value(node ? node->GetInteger(key) : nullptr);
    return value ? *value : -12345;
  }

  TempDirectory directory_;
  std::vector<std::string> problems_;
};

TEST_F(Cfg, ValuesAreFoundByKeyAndPath) {
  ASSERT_EQ(load("push: {max_cached_studies: -1, modality_image_size: {ct: 520, mr: 130}}\n"
                 "log: {file: a log.txt, level: 5}\n"
                 "durability: relaxed\n"),
            0);
  EXPECT_EQ(problems_, std::vector<std::string>());
  EXPECT_EQ(integer("max_cached_studies"), -1);
  EXPECT_EQ(integer("mr", "modality_image_size"), 130);
  std::unique_ptr<RWCString> const file(Util_Cfg::GetHandle()->GetLog()->GetString("file"));
  EXPECT_EQ(*file, "a log.txt");
  EXPECT_EQ(CFG_Factory::GetRepositoryServices()->GetNode("velquant\\system\\grader"), nullptr);
  EXPECT_EQ(Tree_PathAndValueArray({}).GetPV(0), nullptr);
}

TEST_F(Cfg, ProblemsNameTheirLineAndLeaveTheRest) {
  std::pair<std::string, std::vector<std::string>> const cases[] = {
      {"# nothing\npush:\n", {}},
      {"push:\n  max_cached_studies: 700\n  max_studies: 3\n", {":3: unknown key push\\max_studies"}},
      {"push:\n  max_cached_studies: 2147483648\n", {":2: push\\max_cached_studies must be an integer"}},
      {"push: {}\npush: {}", {":2: second push"}},
      {"push: [a, {b: c}]", {":1: push must be a mapping"}},
      {"push:\n\n  modality_image_size:\n    ct: -1\n    mr: 2\n    mr: 3\n",
       {":4: push\\modality_image_size\\ct must be an integer, at least 0",
        ":6: second push\\modality_image_size\\mr"}},
      {"durability: sometimes\nlog: {level: 8}",
       {":1: durability must be full or relaxed", ":2: log\\level must be an integer from 3 to 7"}},
      {"log: &a {file: &b x}\ndurability: *b", {":2: durability must be full or relaxed"}},
  };
  for (auto const& [text, problems] : cases) {
    LogCapture log;
    EXPECT_EQ(load(text), 0) << text;
    EXPECT_EQ(problems_, problems) << text;
    for (std::string const& problem : problems)
      EXPECT_EQ(log.Count(4, "cfg.yaml" + problem), 1) << problem;
  }
  load("push: {max_repository_size_mb: x, max_cached_studies: 3}\ndurability: 1");
  EXPECT_EQ(integer("max_cached_studies"), 3);
  EXPECT_EQ(integer("max_repository_size_mb"), -12345);
}

TEST_F(Cfg, RefusedFilesChangeNothing) {
  EXPECT_NE(CFG_Factory::GetRepositoryServices(), nullptr); // nothing was asked for: the defaults stand
  EXPECT_EQ(Util_Cfg::Load(directory_.Path().c_str()), -1);
  EXPECT_EQ(CFG_Factory::GetRepositoryServices(), nullptr);
  ASSERT_EQ(load("push: {max_cached_studies: 3}\ndurability: relaxed"), 0);
  Util_CfgHandle const* const first = Util_Cfg::GetHandle();
  std::string deepest;
  for (int i = 0; i < 64; ++i)
    deepest += "{a: ";
  EXPECT_EQ(load(deepest + std::string(64, '}')), 0); // only just
  ASSERT_EQ(load("push: {max_cached_studies: 4}\ndurability: relaxed"), 0);
  std::pair<std::string, std::string> const cases[] = {
      {"push: {max_cached_studies: 5", ":1: "},
      {"- a\n", ":1: a mapping is expected"},
      {"push: {}\n---\npush: {}\n", ":0: more than one document"},
      {"a: 1\n? [x]\n: y\n", ":2: a key must be a text"},
      {"\n" + deepest + "{a: 1}" + std::string(64, '}'), ":2: nested too deep"},
      {"a: " + std::string(64, '[') + std::string(64, ']'), ":1: nested too deep"},
      {std::string((1 << 20) - 1, '['), ":1: "},
      {"#" + std::string(1 << 20, 'x'), ":0: larger than 1 MiB"},
  };
  for (auto const& [text, problem] : cases) {
    EXPECT_EQ(load(text), -1) << problem;
    ASSERT_EQ(problems_.size(), 1U);
    EXPECT_TRUE(problems_[0].starts_with(problem)) << problems_[0] << " not " << problem;
    EXPECT_EQ(integer("max_cached_studies"), 4);
    EXPECT_EQ(Util_FileSystem::GetDurability(), Util_Durability::Relaxed);
    EXPECT_NE(CFG_Factory::GetRepositoryServices(), nullptr);
  }
  std::unique_ptr<int> const kept(first->GetPush()->GetInteger("max_cached_studies"));
  EXPECT_EQ(*kept, 3); // what a caller holds stays good
  Util_Cfg::Clear();
  EXPECT_EQ(Util_Cfg::GetHandle(), nullptr);
  EXPECT_EQ(Util_FileSystem::GetDurability(), Util_Durability::Full);
}

} // namespace

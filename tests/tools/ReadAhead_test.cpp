// Objects that are read ahead in threads: what is stored and what is told must be as if there were none.
#include "objects/ReadAhead.h"

#include "program/Interruption.h"
#include "support/ProgramFixture.h"

#include <csignal>

namespace {

class ReadAheadTest : public ProgramTest {};

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // they need address space of their own
TEST_F(ReadAheadTest, LimitsChangeNothing) {
  for (int i = 1; i <= 8; ++i) { // quickly read and compressed, and a broken file behind every second one
    std::string const name = "large/" + std::to_string(i);
    WriteLarge(name, Small(Phantom::Kind::CT, 3, 1, i), 20 << 10);
    if (i % 2) temp.Write(name + "bad", i % 4 == 1 ? "" : temp.Read(name).substr(0, 300));
  }
  for (char const* limit : {"", "ulimit -s 70368744177664 && " /* no thread gets a stack */, "ulimit -v 100000 && "}) {
    SCOPED_TRACE(limit);
    fs::remove_all(temp / "limited");
    Result const result = Run({"store", "limited", "large", "--strict"}, limit);
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out.substr(0, 20), "8 stored, 4 refused ") << result.out << result.err;
    for (char const* line : {"1bad: not a DICOM file", "3bad: the file meta information is cut short",
                             "5bad: not a DICOM file", "7bad: the file meta information is cut short"})
      EXPECT_NE(result.err.find(line), std::string::npos) << line << "\n" << result.err;
  }
}
#endif

TEST_F(ReadAheadTest, GivesAllAndCompressesNothingAfterAnInterruption) {
  std::vector<std::string> files;
  for (int image : {1, 2, 3})
    files.push_back(temp / ("in/" + Phantom::FileName(Small(Phantom::Kind::CT, 1, 1, image))));
  auto const compressed = [&files] {
    ReadAhead objects(files, true);
    int count = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
      ReadAhead::Object const next = objects.Next();
      if (!next.object) return -1;
      count += next.object->GetEncapsulatedSyntax() != UI_NULL;
    }
    return count;
  };
  EXPECT_EQ(compressed(), 3);
  auto const interrupted = [&] {
    WatchForInterruption();
    std::raise(SIGTERM);
    std::_Exit(compressed());
  };
  EXPECT_EXIT(interrupted(), testing::ExitedWithCode(0), "");
}

TEST_F(ReadAheadTest, ReadsAgainWhatWasDropped) {
  std::vector<std::string> const files = {temp / ("in/" + Phantom::FileName(Small(Phantom::Kind::CT))), temp / "gone",
                                          temp / ("in/" + Phantom::FileName(Small(Phantom::Kind::SR, 1, 2)))};
  ReadAhead objects(files, true);
  EXPECT_TRUE(objects.Next().object);
  EXPECT_TRUE(objects.DropOthers());
  EXPECT_FALSE(objects.DropOthers());
  EXPECT_EQ(objects.Again().object->GetModality().GetText(), "CT");
  EXPECT_EQ(objects.Next().problem, "can't be read: No such file or directory");
  EXPECT_EQ(objects.Next().object->GetModality().GetText(), "SR");
}

} // namespace

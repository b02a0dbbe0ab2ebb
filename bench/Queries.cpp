// Queries, warm and in a process that has just begun.
#include "FileSet.h"

#include <unistd.h>

namespace {

using namespace Bench;

SCL_QueryIdentifier Studies() {
  SCL_QueryIdentifier all(SCL_QueryRetrieveLevel::STUDY);
  all.SetPatientsName(PN_NULL);
  all.SetPatientID(LO_NULL);
  all.SetStudyInstanceUID(UI_NULL);
  all.SetStudyDate(DA_NULL);
  all.SetModalitiesInStudy(CS_NULL);
  return all;
}

SCL_QueryIdentifier OneStudy(Phantom::Object const& object) {
  SCL_QueryIdentifier one = Studies();
  one.SetStudyInstanceUID(Phantom::StudyUid(object));
  return one;
}

SCL_QueryIdentifier Images(Phantom::Object const& object, bool one = false) {
  SCL_QueryIdentifier images(SCL_QueryRetrieveLevel::IMAGE);
  images.SetStudyInstanceUID(Phantom::StudyUid(object));
  images.SetSeriesInstanceUID(Phantom::SeriesUid(object));
  images.SetSOPInstanceUID(one ? Phantom::InstanceUid(object) : UI_NULL);
  images.SetImageNumber(IS_NULL);
  return images;
}

int Ask(Disk_RootDirectoryFile& root, SCL_QueryIdentifier const& identifier) {
  Dicom_Sequence results;
  Require(root.Query(identifier, 1, &results) == 0, "querying");
  return results.GetNItems();
}

void Warm(std::string const& what, long n, Disk_RootDirectoryFile& root, SCL_QueryIdentifier const& identifier,
          int answers) {
  constexpr int kRuns = 9, kAsks = 20;
  Require(Ask(root, identifier) == answers, "a query's answers");
  double const took = MedianOf(kRuns, [&] {
    for (int i = 0; i < kAsks; ++i)
      Ask(root, identifier);
  });
  Report("query", what, "ours", n, took / kAsks);
}

/// A query that goes down into many series.
void HundredSeries(Scope const& scope) {
  constexpr int kManySeries = 100, kFewImages = 10;
  Progress("queries over a study of 100 series");
  Folder const folder(scope.base);
  for (bool const standard : {false, true}) {
    std::string const set = folder.Path() + (standard ? "/standard" : "/private"), in = standard ? ", standard" : "";
    std::filesystem::create_directory(set);
    auto const root = Open(set, kNative | (standard ? unsigned(Disk_StoreParams::STANDARD_STRUCTURE) : 0));
    Fill(*root, kManySeries * kFewImages,
         [](int i) { return Phantom::Object{.series = i / kFewImages + 1, .image = i % kFewImages + 1}; });
    SCL_QueryIdentifier images = Images({});
    images.SetSeriesInstanceUID(UI_NULL);
    Warm("images of a study of 100 series" + in, kManySeries, *root, images, kManySeries * kFewImages);
  }
}

/// In microseconds, as a new process tells it.
double Afresh(std::string const& folder) {
  char self[4096] = {};
  Require(readlink("/proc/self/exe", self, sizeof self - 1) > 0, "finding itself");
  FILE* const output = popen((std::string(self) + " --ask " + folder).c_str(), "r");
  double took = 0;
  Require(output && std::fscanf(output, "%lf", &took) == 1 && pclose(output) == 0, "a process that asks");
  return took;
}

void SevenHundredStudies(Scope const& scope) {
  Progress("queries over 700 studies");
  Folder const folder(scope.base);
  auto const root = Open(folder.Path());
  Fill(*root, 700, [](int i) { return Phantom::Object{.patient = i / 2 + 1, .study = i + 1}; });
  Fill(*root, kImages, [](int i) { return Phantom::Object{.image = i + 1}; });
  Phantom::Object const last{.patient = 350, .study = 700};
  Warm("700 studies", 700, *root, Studies(), 700);
  Warm("by Study Instance UID", 700, *root, OneStudy(last), 1);
  Warm("images of a series of 50", 700, *root, Images({}), kImages);
  std::vector<double> times(9);
  for (double& time : times)
    time = Afresh(folder.Path());
  Report("query", "700 studies, new process", "ours", 700, Median(times));
}

/// What the peers are asked too.
void TwentyThousandObjects(Scope const& scope) {
  int const objects = scope.quick ? 2000 : 20000, studies = objects / (kSeries * kImages);
  Progress("queries over " + std::to_string(objects) + " objects");
  Folder const folder(scope.base);
  for (bool const standard : {false, true}) {
    std::string const set = folder.Path() + (standard ? "/standard" : "/private"), in = standard ? ", standard" : "";
    std::filesystem::create_directory(set);
    auto const root = Open(set, kNative | (standard ? unsigned(Disk_StoreParams::STANDARD_STRUCTURE) : 0));
    Fill(*root, objects, Usual);
    Phantom::Object const asked = Usual(objects / 2);
    Warm("all studies" + in, objects, *root, Studies(), studies);
    Warm("one study" + in, objects, *root, OneStudy(asked), 1);
    Warm("images of a series" + in, objects, *root, Images(asked), kImages);
    Warm("one image" + in, objects, *root, Images(asked, true), 1);
  }
}

} // namespace

int Bench::AskAfresh(std::string const& folder) {
  double const took = Microseconds([&] { Require(Ask(*Open(folder), Studies()) == 700, "a query's answers"); });
  return std::printf("%.1f\n", took) > 0 ? 0 : 1;
}

void Bench::Queries(Scope const& scope) {
  SevenHundredStudies(scope);
  HundredSeries(scope);
  TwentyThousandObjects(scope);
}

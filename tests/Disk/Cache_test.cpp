// The bounded cache: how studies are graded, what it may take of the disk, who goes when an object doesn't fit, and
// that two cleanings never overlap.
#include "support/FileSetFixture.h"
#include "support/Kill.h"
#include "support/TestImage.h"

#include <Disk/Disk_CacheRepository.h>
#include <Disk/Disk_CacheRepositoryCleanGradeFactory.h>
#include <Disk/Disk_CacheRepositoryCleanGraders.h>
#include <infra/I18n.h>
#include <infra/Util_Cfg.h>
#include <sys/mount.h>

namespace {

namespace fs = std::filesystem;
constexpr std::time_t kStart = 1700000000, kDay = 86400;
constexpr char kPullClient[] = "velquant\\system\\applications\\loader\\pull_client\\";

std::string AsDateTime(std::time_t when) {
  std::tm parts{};
  EXPECT_EQ(Util_Clock::LocalTime(when, &parts), 0);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &parts);
  return text;
}

// A disk whose sizes are what the test says.
class SizedDisk : public FaultyFileSystem {
public:
  SizedDisk(unsigned long total, unsigned long free) : total_mb(total), free_mb(free) {}
  int Statvfs(char const*, struct statvfs* status) override {
    *status = {};
    status->f_frsize = block;
    status->f_blocks = total_mb;
    status->f_bavail = free_mb - (taken ? taken() : 0);
    return 0;
  }
  unsigned long total_mb, free_mb, block = 1 << 20;
  std::function<unsigned long()> taken; // by the file-set
};

// The repository with its protected parts.
class Cache : public Disk_CacheRepository {
public:
  using Base = Disk_CacheRepository;
  using Base::GetCfgInteger, Base::GetStudiesMetaData, Base::m_maxStudies, Base::m_quotaMB, Base::m_spaceFactor,
      Base::m_userQuotaMB;
};

class CacheTest : public FileSetTest {
protected:
  CacheTest() { Util_FileSystem::SetDurability(Util_Durability::Relaxed); }
  ~CacheTest() override { Util_Cfg::Clear(); }
  void Configure(std::string const& text) {
    std::vector<std::string> problems;
    ASSERT_EQ(Util_Cfg::Load(files_.Write("config.yaml", text).c_str(), &problems), 0);
    EXPECT_EQ(problems, std::vector<std::string>());
    Util_FileSystem::SetDurability(Util_Durability::Relaxed);
  }
  std::unique_ptr<Cache> Construct() const {
    auto cache = std::make_unique<Cache>();
    cache->SetPath(FromUTF8(Prefix().c_str()));
    EXPECT_EQ(cache->Construct(), 0);
    return cache;
  }
  // An object of about so many KB.
  static std::unique_ptr<IOD_Msg> Object(int study, int image, int kb = 8) {
    auto msg = Phantom::Make({.study = study, .image = image, .size = 16});
    std::string const pixels(std::size_t(kb) * 1024, 'x');
    msg->SetRows(Dicom_US(std::uint16_t(1))); // what doesn't fit its dimensions isn't compressed
    msg->Set(kPixelData, Dicom_OW(pixels.data(), pixels.size(), 1, nullptr));
    return msg;
  }
  static std::string Uid(int study) { return StudyOf({.study = study}); }
  static std::set<std::string> Studies(Cache& cache) {
    Disk_StudyMetaData* array = nullptr;
    int count = 0;
    EXPECT_EQ(cache.GetStudiesMetaData(array, count), 0);
    std::unique_ptr<Disk_StudyMetaData[]> const owner(array);
    std::set<std::string> uids;
    for (int i = 0; i < count; ++i)
      uids.insert(array[i].m_studyUID.GetText());
    return uids;
  }
  TempDirectory files_;
};

} // namespace

TEST_F(CacheTest, GradesAndThresholds) {
  auto& factory = *Disk_CacheRepositoryCleanGradeFactory::GetInstance();
  EXPECT_EQ(factory.CalculateThreshold(5), 56);
  EXPECT_EQ(factory.CalculateThreshold(4), 85);
  Util_Clock::SetNow(kStart);
  auto const ago = [](int days) { return days == -1 ? DT_NULL : Dicom_DT(AsDateTime(kStart - days * kDay)); };
  auto const make = [&](int kb, int stored_days_ago, int read_days_ago) { // -1: no such date
    Disk_StudyMetaData study;
    study.m_sizeKB = kb;
    study.m_storeDate = ago(stored_days_ago);
    study.m_accessDate = ago(read_days_ago);
    return study;
  };
  Disk_StudyMetaData studies[] = {make(300, 20, 20), make(100, 0, -1),  make(200, 1, 7),  make(100, -1, -1),
                                  make(100, 8, 15),  make(100, -3, -3), make(100, 14, 14)};
  factory.GradeStudies(studies, int(std::size(studies)));
  std::vector<int> grades;
  for (Disk_StudyMetaData const& study : studies)
    grades.push_back(study.GetGrade());
  EXPECT_EQ(grades, (std::vector{16, 98, 69, 63, 45, 95, 59}));
  EXPECT_EQ(std::vector(studies[0].m_weights, studies[0].m_weights + 4), (std::vector{5, 4, 2, 0}));
  Disk_StudyMetaData one = make(500, -1, -1), ungraded;
  Disk_CacheRepository_SizeStudyGrader grader; // takes part as long as it lives
  EXPECT_EQ(factory.CalculateThreshold(5), (2 * 20 + 4 * 20 + 5 * 100 + 2 * 20) / 13);
  grader.GradeStudies(&one, 1);
  EXPECT_EQ(one.m_grades[0], 100);
  EXPECT_EQ(ungraded.GetGrade(), 100);
  factory.GradeStudies(nullptr, 0);
}

TEST_F(CacheTest, GradeTablesWithOddEntries) {
  std::pair<std::string, std::vector<std::pair<int, int>>> const cases[] = {
      // grades by age
      {"3: 80, 3: 40, 10: 30", {{0, 80}, {3, 80}, {4, 30}, {11, 100}, {-5, 80}}},
      {"1: 85, 7: 65, default: 10", {{0, 85}, {1, 85}, {2, 65}, {8, 10}}},
      {"7x: 60, x: 50, 0: 90, default: abc", {{0, 90}, {5, 60}, {8, 100}}},
      {"2: abc, 3: 0, 4: '00', 5: 20", {{2, 0}, {4, 20}}},
      {"9: 10, 1: 90, default: -5", {{1, 90}, {2, 10}, {10, -5}}},
  };
  for (auto const& [entries, grades] : cases) {
    Configure("velquant: {system: {applications: {loader: {pull_client: {store_grader: {" + entries + "}}}}}}\n");
    Disk_CacheRepository_GradeTable table(RWCString(kPullClient) + "store_grader");
    for (auto const& [age, grade] : grades)
      EXPECT_EQ(table.GetGrade(age), grade) << entries << ", age " << age;
  }
  Util_Cfg::Load(DISK_SOURCE_DIR "/examples/disk.yaml");
  Disk_CacheRepository_GradeTable example(RWCString(kPullClient) + "store_grader");
  example.Load();
  Util_Cfg::Clear();
  Disk_CacheRepository_GradeTable built_in(RWCString(kPullClient) + "access_grader");
  for (auto const& [age, grade] : {std::pair(0, 95), {1, 85}, {2, 65}, {8, 50}, {15, 20}})
    EXPECT_EQ(std::pair(built_in.GetGrade(age), example.GetGrade(age)), std::pair(grade, grade)) << age;
  EXPECT_EQ(Util_Cfg::Load("/no/such/file"), -1); // the one that was loaded stands
  // the example holds every default
  std::vector<std::string> problems;
  EXPECT_EQ(Util_Cfg::Load(DISK_SOURCE_DIR "/examples/disk.yaml", &problems), 0);
  EXPECT_EQ(problems, std::vector<std::string>());
  EXPECT_EQ(Util_FileSystem::GetDurability(), Util_Durability::Full);
  auto const cache = Construct();
  Util_Cfg::Clear();
  auto const by_default = Construct();
  EXPECT_EQ(cache->m_maxStudies, by_default->m_maxStudies);
  EXPECT_EQ(cache->m_userQuotaMB, by_default->m_userQuotaMB);
}

TEST_F(CacheTest, Quotas) {
  std::tuple<unsigned long, unsigned long, int, std::string, int, int, long> const rows[] = {
      {102400, 20480, 3000, "", 5000, 5000, 2048000},
      {40000, 20000, 0, "", 4000, 4000, 4096000}, // by percentage
      {50000, 20000, 0, "", 5000, 5000, 5120000}, // both are equal
      {50000, 500, 100, "", 5000, 100, 0},        // all but the spare is taken
      {50000, 400, 200, "", 5000, 100, 0},        // the spare is eaten into
      {50000, 100, 200, "", 5000, 0, 0},          // there is none at all
      {50000, 5500, 0, "", 5000, 5000, 5120000},  // exactly as much as is wanted
      {50000, 100, 0, "repository_hd_percentage_spare: 0", 5000, 100, 102400},
      {50000, 20000, 100, "max_repository_size_mb: 50", 50, 50, 0}, // over its quota
      {50000, 20000, 0, "max_repository_hd_percentage: 2", 1000, 1000, 1024000},
  };
  int number = 0;
  for (auto const& [total_mb, free_mb, repository_mb, push, user_quota, quota, free_kb] : rows) {
    SCOPED_TRACE(number++);
    if (!push.empty()) Configure("push: {" + push + "}\n");
    TempDirectory folder;
    std::ofstream(folder / "ballast").close();
    fs::resize_file(folder / "ballast", std::uintmax_t(repository_mb) << 20);
    SizedDisk const disk(total_mb, free_mb);
    Cache cache;
    cache.SetPath(FromUTF8(folder.Path().c_str()));
    EXPECT_EQ(cache.FreeSpaceKB(), 0);
    EXPECT_EQ(cache.Construct(), 0);
    EXPECT_EQ(cache.m_userQuotaMB, user_quota);
    EXPECT_EQ(cache.m_quotaMB, quota);
    EXPECT_EQ(cache.FreeSpaceKB(), free_kb);
    Util_Cfg::Clear();
  }
  int value = 7;
  EXPECT_FALSE(Cache::GetCfgInteger("max_cached_studies", value));
  EXPECT_EQ(value, 7);
  for (auto const& [configured, in_force] : {std::pair(700, 700), {701, 700}, {0, 0}, {-1, -1}, {12, 12}}) {
    Configure("push: {max_cached_studies: " + std::to_string(configured) + "}\n");
    EXPECT_EQ(Cache().m_maxStudies, in_force);
    EXPECT_FALSE(Cache::GetCfgInteger("max_repository_size_mb", value));
    EXPECT_EQ(value, 0);
  }
  auto const cache = Construct();
  EXPECT_EQ(cache->GetThreshold(), 56);
  for (auto const& [set, then] : {std::pair(100, 100), {101, 100}, {-1, 100}, {0, 0}}) {
    cache->SetThreshold(set);
    EXPECT_EQ(cache->GetThreshold(), then);
  }
}

// While every store finds too little space the factor doubles to 32; each that finds enough takes one off.
TEST_F(CacheTest, TheSpaceFactorFollowsThePressure) {
  Configure("push: {repository_hd_percentage_spare: 0, max_cached_studies: 0}\n");
  SizedDisk disk(100000, 1000);
  auto const cache = Construct();
  LogCapture log;
  EXPECT_EQ(cache->AutoCleanNStudies(0), 0);
  EXPECT_EQ(log.Count(6, "Found 0 Studies in DICOMDIR:"), 1);
  Util_Clock::SetNow(kStart);
  std::string course;
  int image = 0;
  for (int const has_space : {1, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 1, 1}) {
    disk.free_mb = has_space ? 1000 : 0;
    EXPECT_EQ(cache->Store(Object(1, ++image).get(), false), has_space ? 0 : -1);
    EXPECT_EQ(cache->GetThreshold(), 56) << "restored, whatever came of the cleaning";
    course += std::to_string(cache->m_spaceFactor) + " ";
  }
  EXPECT_EQ(course, "1 2 4 3 2 4 8 16 32 32 32 32 31 30 ");
}

TEST_F(CacheTest, TheNumberOfStudiesIsLimited) {
  Configure("push: {max_cached_studies: 3}\n");
  auto const cache = Construct();
  int study = 0;
  for (int const day : {0, 30, 40}) {
    Util_Clock::SetNow(kStart + day * kDay);
    ASSERT_EQ(cache->Store(Object(++study, 1).get(), false), 0);
    ASSERT_EQ(cache->MarkStudyAsAccessed(Dicom_UI(Uid(study))), 0);
  }
  ASSERT_EQ(cache->Store(Object(4, 1).get(), false), 0);
  EXPECT_EQ(Studies(*cache), (std::set{Uid(2), Uid(3), Uid(4)}));
  ASSERT_EQ(cache->Store(Object(4, 2).get(), false), 0) << "the count follows the cleaning";
  EXPECT_EQ(Studies(*cache), (std::set{Uid(2), Uid(3), Uid(4)}));
  // the others were read just now: the store is refused, and they stay
  Util_Clock::SetNow(kStart + 50 * kDay);
  auto const other = Construct();
  for (int const read : {2, 3})
    ASSERT_EQ(cache->MarkStudyAsAccessed(Dicom_UI(Uid(read))), 0);
  EXPECT_EQ(other->Store(Object(5, 1).get(), false), -1);
  EXPECT_EQ(Studies(*cache), (std::set{Uid(2), Uid(3), Uid(4)}));
  EXPECT_EQ(other->AutoCleanNStudies(0), 0);
  for (auto const& [percentage, result] : {std::pair(101, -1), {-1, -1}, {0, 0}})
    EXPECT_EQ(other->AutoCleanPercentage(percentage), result);
  EXPECT_EQ(other->AutoCleanMB(LONG_MIN), 0);
  EXPECT_EQ(other->CleanAll(), 0);
  EXPECT_EQ(Studies(*cache), std::set<std::string>());
  EXPECT_EQ(other->Store(Object(5, 1).get(), false), 0) << "a refusal that outlives its cause";
  EXPECT_EQ(other->AutoCleanMB(LONG_MAX), -1);
  Cache unconstructed;
  unconstructed.SetPath(FromUTF8("/no/such/folder"));
  EXPECT_EQ(unconstructed.FreeSpaceKB(), 0);
  EXPECT_EQ(unconstructed.Construct(), -1);
}

// Whose thread and whose object stores is all one: the studies are counted when the study changes, and only then.
TEST_F(CacheTest, TheCountIsThatOfTheProcess) {
  Configure("push: {max_cached_studies: 3}\n");
  auto const cache = Construct();
  struct {
    int study;
    bool elsewhere;
    int result, listed; // a cleaning lists them once more
  } const steps[] = {{1, false, 0, 1}, {2, false, 0, 1}, {2, true, 0, 0},  {3, false, 0, 1},
                     {3, true, 0, 0},  {4, true, 0, 2},  {3, false, -1, 2}};
  for (int image = 0; auto const& step : steps) {
    SCOPED_TRACE(++image);
    Util_Clock::SetNow(kStart + (image < 6 ? 0 : 50 * kDay));
    for (int const read : {1, 2}) // number 3 is the one to go
      EXPECT_TRUE(image < 6 || cache->MarkStudyAsAccessed(Dicom_UI(Uid(read))) == 0);
    LogCapture log(6);
    auto const store = [&](Cache& by) {
      EXPECT_EQ(by.Store(Object(step.study, image, step.study * step.study * 10).get(), false), step.result);
    };
    if (step.elsewhere)
      std::thread([&] { store(*Construct()); }).join();
    else
      store(*cache);
    EXPECT_EQ(log.Count(6, "Found "), step.listed);
    EXPECT_EQ(cache->MarkStudyAsAccessed(Dicom_UI(Uid(step.study))), step.result);
  }
  EXPECT_EQ(Studies(*cache), (std::set{Uid(1), Uid(2), Uid(4)}));
}

// Those of the lowest grades go, the largest here, and no more of them than have to.
TEST_F(CacheTest, StudiesMakeRoom) {
  Configure("push: {max_repository_size_mb: 20, max_repository_hd_percentage: 100, max_cached_studies: 0}\n");
  SizedDisk const disk(100000, 90000);
  auto const cache = Construct();
  for (int study = 1; study <= 6; ++study) { // of 1 to 5 MB; the last one is small and was read just now
    Util_Clock::SetNow(study == 6 ? kStart + 60 * kDay : kStart);
    ASSERT_EQ(cache->Store(Object(study, 1, study == 6 ? 1024 : study * 1024).get(), false), 0);
    ASSERT_EQ(cache->MarkStudyAsAccessed(Dicom_UI(Uid(study))), 0);
  }
  std::tuple<int, int, std::vector<std::string>> const steps[] = {
      {0, 0, {Uid(5)}}, {5, 0, {}}, {6, 0, {Uid(4)}}, {12, 0, {Uid(3), Uid(2)}}, {19, -1, {Uid(1)}}};
  for (auto const& [mb, result, gone] : steps) {
    std::vector<std::string> given_up;
    cache->SetStudyGivenUp([&](Disk_StudyMetaData const& study) { given_up.push_back(study.m_studyUID.GetText()); });
    EXPECT_EQ(mb == 0 ? cache->Store(Object(7, 1, 4096).get(), false) : cache->AutoCleanMB(mb), result) << mb;
    EXPECT_EQ(given_up, gone) << mb;
  }
  EXPECT_EQ(Studies(*cache), (std::set{Uid(6), Uid(7)}));
  ExpectSound();
}

// The oldest studies go, in order, until the space is free; the protected and the young ones stay.
TEST_F(CacheTest, AutoDeleteFreesWhatIsWanted) {
  auto root = OpenForDeletes();
  int const ages[] = {50, 90, 30, 70, 5, 60}; // in days, of studies 1 to 6
  for (int study = 0; int const age : ages) {
    Util_Clock::SetNow(kStart - age * kDay);
    ASSERT_EQ(Store(*root, *Example({.study = ++study})), 0);
  }
  Util_Clock::SetNow(kStart);
  ASSERT_EQ(root->ProtectImages(Named(STUDY, {.study = 4}), 1, nullptr), 0);
  SizedDisk disk(10, 10);
  disk.block = 1000 * 1024; // each object takes one
  disk.taken = [this] {
    auto const files = Files();
    return std::count_if(files.begin(), files.end(),
                         [](auto const& file) { return file.first.find("/I") != file.first.npos; });
  };
  EXPECT_EQ(root->FreeSpace(), 4000);
  std::tuple<int, int, char const*> const steps[] = {
      {3, 0, "123456"}, {4, 20, "13456"}, // exactly the limit isn't enough
      {5, 60, "13456"},                   // 60 days old is young still
      {6, 20, "345"},   {100, 20, "45"},  {100, 4, "4"}};
  for (auto const& [wanted_mb, min_age_days, expected] : steps) {
    root->SetAutoDeletePar({wanted_mb, min_age_days});
    EXPECT_EQ(root->AutoDelete(), 0);
    std::string left;
    for (int study = 1; study <= 6; ++study)
      if (!Images(*root, Phantom::StudyUid({.study = study})).empty()) left += std::to_string(study);
    EXPECT_EQ(left, expected);
    ExpectSound();
  }
}

TEST_F(CacheTest, AFullDiskIsCleaned) {
  if (mount("tmpfs", Prefix().c_str(), "tmpfs", 0, "size=12m") == -1) GTEST_SKIP() << "nothing can be mounted here";
  Configure("push: {max_repository_hd_percentage: 200, max_repository_size_mb: 100, "
            "repository_hd_percentage_spare: 0}\n");
  Util_Clock::SetNow(kStart);
  auto const cache = Construct();
  constexpr int kStudies = 20, kKb = 200;
  for (int study = 1; study <= kStudies; ++study)
    ASSERT_EQ(cache->Store(Object(study, 1, kKb).get(), false), 0);
  std::ofstream ballast(At("ballast"), std::ios::binary);
  for (std::string const block(4096, 'x'); ballast << block << std::flush;) {
  }
  // young studies stay: the store is refused, by the cache and by the disk itself
  EXPECT_EQ(cache->Store(Object(100, 1, kKb).get(), false), -1);
  EXPECT_EQ(Store(*Open(), *Object(100, 1, kKb)), -1);
  EXPECT_EQ(Studies(*cache).size(), std::size_t(kStudies));
  ExpectSound(true);
  cache->SetThreshold(100);
  EXPECT_EQ(cache->AutoCleanMB(2), 0);
  EXPECT_EQ(cache->Store(Object(101, 1, kKb).get(), false), 0);
  EXPECT_LT(Studies(*cache).size(), std::size_t(kStudies - 5));
  ExpectSound(true);
  umount2(Prefix().c_str(), MNT_DETACH);
}

// A cleaning waits for one of another process, whoever runs it and whatever signals come, and doesn't for one that was
// killed.
TEST_F(CacheTest, CleaningsDoNotOverlap) {
  for (auto const& [unprivileged, killed] : {std::pair(false, false), {false, true}, {true, false}, {true, true}}) {
    if (unprivileged && getuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    Clear();
    fs::permissions(Prefix(), fs::perms::all);
    Util_Clock::SetNow(kStart);
    auto const as_asked = [unprivileged = unprivileged](auto work) {
      constexpr unsigned kNobody = 65534;
      return [=] { return (!unprivileged || (setgid(kNobody) == 0 && setuid(kNobody) == 0)) && work() ? 0 : 1; };
    };
    auto const prepare = [&] {
      umask(0);
      int result = 0;
      for (int study = 1; study <= 4; ++study)
        result |=
            Construct()->Store(Object(study, 1).get(), false) | Construct()->MarkStudyAsAccessed(Dicom_UI(Uid(study)));
      return result == 0;
    };
    ASSERT_EQ(InChild(as_asked(prepare)), 0);
    Util_Clock::SetNow(kStart + 100 * kDay);
    std::string const marker = At("cleaning");
    auto const clean_slowly = [&] {
      auto const cache = Construct();
      FaultyFileSystem const slow([&](std::string_view call, char const* path) {
        if (call == "Unlink" && std::string(path).find("/I") != std::string::npos) {
          std::ofstream(marker).close();
          usleep(200000);
        }
        return 0;
      });
      return cache->AutoCleanNStudies(3) == 0;
    };
    pid_t const first = fork();
    if (first == 0) _exit(as_asked(clean_slowly)());
    while (!fs::exists(marker))
      usleep(1000);
    if (killed) kill(first, SIGKILL);
    // the second counts what the first has left: it can't have begun before
    auto const clean = [&, killed = killed] {
      struct sigaction interrupted {};
      interrupted.sa_handler = [](int) {}; // without SA_RESTART
      sigaction(SIGALRM, &interrupted, nullptr);
      ualarm(5000, 5000);
      auto const cache = Construct();
      return cache->AutoCleanNStudies(0) == 0 && (killed || Studies(*cache).size() == 1);
    };
    EXPECT_EQ(InChild(as_asked(clean)), 0);
    int status = 0;
    EXPECT_EQ(waitpid(first, &status, 0) == first && status == 0, !killed);
  }
}

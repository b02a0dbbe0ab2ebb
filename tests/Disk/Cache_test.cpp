// The bounded cache: how studies are graded, what it may take of the disk, who goes when an object doesn't fit, and
// that two cleanings never overlap.
#include "support/FileSetFixture.h"
#include "support/Kill.h"
#include "support/TestImage.h"

#include <Disk/Disk_CacheRepository.h>
#include <Disk/Disk_CacheRepositoryCleanGradeFactory.h>
#include <Disk/Disk_CacheRepository_Graders.h>
#include <algorithm>
#include <infra/I18n.h>
#include <infra/Klb_FileSystemUtils.h>
#include <infra/Util_Cfg.h>
#include <set>
#include <sys/mount.h>

namespace {

namespace fs = std::filesystem;
constexpr std::time_t kStart = 1700000000, kDay = 86400;
constexpr char kPullClient[] = "velquant\\system\\applications\\loader\\pull_client\\";

std::string AsDateTime(std::time_t when) {
  std::tm parts{};
  Util_Clock::LocalTime(when, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &parts);
  return text;
}

// A disk whose sizes are what the test says.
class SizedDisk : public Util_FileSystemInterface {
public:
  SizedDisk(unsigned long total, unsigned long free) : total_mb(total), free_mb(free) { SetCurrent(this); }
  ~SizedDisk() override { SetCurrent(nullptr); }
  int Statvfs(char const*, struct statvfs* status) override {
    *status = {};
    status->f_frsize = 1 << 20;
    status->f_blocks = total_mb;
    status->f_bavail = free_mb;
    return 0;
  }
  unsigned long total_mb, free_mb;
};

// The repository with its protected parts.
class Cache : public Disk_CacheRepository {
public:
  using Disk_CacheRepository::GetCfgInteger;
  using Disk_CacheRepository::GetStudiesMetaData;
  using Disk_CacheRepository::m_maxStudies;
  using Disk_CacheRepository::m_quotaMB;
  using Disk_CacheRepository::m_spaceFactor;
  using Disk_CacheRepository::m_userQuotaMB;
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
  static std::string Uid(int study) { return Phantom::StudyUid({.study = study}).GetText(); }
  // The studies in the order in which they are to go.
  static std::vector<Disk_StudyMetaData> Order(Cache& cache) {
    Disk_StudyMetaData* array = nullptr;
    int count = 0;
    EXPECT_EQ(cache.GetStudiesMetaData(array, count), 0);
    std::unique_ptr<Disk_StudyMetaData[]> const owner(array);
    Disk_CacheRepositoryCleanGradeFactory::GetInstance()->GradeStudies(array, count);
    std::vector<Disk_StudyMetaData> studies(array, array + count);
    std::stable_sort(studies.begin(), studies.end(),
                     [](auto const& a, auto const& b) { return a.GetGrade() < b.GetGrade(); });
    return studies;
  }
  static std::set<std::string> Studies(Cache& cache) {
    std::set<std::string> uids;
    for (Disk_StudyMetaData const& study : Order(cache))
      uids.insert(study.m_studyUID.GetText());
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
  auto const make = [](int kb, int stored_days_ago, int read_days_ago) {
    Disk_StudyMetaData study;
    study.m_sizeKB = kb;
    if (stored_days_ago != -1) study.m_storeDate = Dicom_DT(AsDateTime(kStart - stored_days_ago * kDay));
    if (read_days_ago != -1) study.m_accessDate = Dicom_DT(AsDateTime(kStart - read_days_ago * kDay));
    return study;
  };
  // size, store date, access date; -1: no such date
  struct {
    int kb, stored, read, grade;
  } const rows[] = {{300, 20, 20, 16}, {100, 0, -1, 98},  {200, 1, 7, 69},  {100, -1, -1, 63},
                    {100, 8, 15, 45},  {100, -3, -3, 95}, {100, 14, 14, 59}};
  std::vector<Disk_StudyMetaData> studies;
  for (auto const& row : rows)
    studies.push_back(make(row.kb, row.stored, row.read));
  factory.GradeStudies(studies.data(), int(studies.size()));
  for (std::size_t i = 0; i < studies.size(); ++i) {
    EXPECT_EQ(studies[i].GetGrade(), rows[i].grade) << i;
    EXPECT_EQ(studies[i].m_gradeCount, 3);
  }
  EXPECT_EQ(std::vector<int>(studies[0].m_weights, studies[0].m_weights + 3), (std::vector<int>{5, 4, 2}));
  Disk_StudyMetaData one = make(500, -1, -1), ungraded;
  Disk_CacheRepository_SizeStudyGrader grader; // takes part as long as it lives
  EXPECT_EQ(factory.CalculateThreshold(5), (2 * 20 + 4 * 20 + 5 * 100 + 2 * 20) / 13);
  grader.GradeStudies(&one, 1);
  EXPECT_EQ(one.m_grades[0], 100);
  EXPECT_EQ(ungraded.GetGrade(), 100);
  factory.GradeStudies(nullptr, 0);
}

TEST_F(CacheTest, GradeTablesWithOddEntries) {
  struct {
    char const* table;
    std::vector<std::pair<int, int>> grades; // by age
  } const cases[] = {
      {"3: 80, 3: 40, 10: 30", {{0, 80}, {3, 80}, {4, 30}, {11, 100}, {-5, 80}}},
      {"1: 85, 7: 65, default: 10", {{0, 85}, {1, 85}, {2, 65}, {8, 10}}},
      {"7x: 60, x: 50, 0: 90, default: abc", {{0, 90}, {5, 60}, {8, 100}}},
      {"2: abc, 3: 0, 4: '00', 5: 20", {{2, 0}, {4, 20}}},
      {"9: 10, 1: 90, default: -5", {{1, 90}, {2, 10}, {10, -5}}},
  };
  for (auto const& c : cases) {
    Configure("velquant: {system: {applications: {loader: {pull_client: {store_grader: {" + std::string(c.table) +
              "}}}}}}\n");
    Disk_CacheRepository_GradeTable table((std::string(kPullClient) + "store_grader").c_str());
    for (auto const& [age, grade] : c.grades)
      EXPECT_EQ(table.GetGrade(age), grade) << c.table << ", age " << age;
  }
  Util_Cfg::Load(DISK_SOURCE_DIR "/examples/disk.yaml");
  Disk_CacheRepository_GradeTable example((std::string(kPullClient) + "store_grader").c_str());
  example.Load();
  Util_Cfg::Clear();
  Disk_CacheRepository_GradeTable built_in((std::string(kPullClient) + "access_grader").c_str());
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
  struct {
    unsigned long total_mb, free_mb;
    int repository_mb;
    char const* push;
    int user_quota, quota;
    long free_kb;
  } const rows[] = {
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
  for (auto const& row : rows) {
    SCOPED_TRACE(number++);
    if (*row.push) Configure("push: {" + std::string(row.push) + "}\n");
    TempDirectory folder;
    std::ofstream(folder / "ballast").close();
    fs::resize_file(folder / "ballast", std::uintmax_t(row.repository_mb) << 20);
    SizedDisk const disk(row.total_mb, row.free_mb);
    Cache cache;
    cache.SetPath(FromUTF8(folder.Path().c_str()));
    EXPECT_EQ(cache.FreeSpaceKB(), 0);
    EXPECT_EQ(cache.Construct(), 0);
    EXPECT_EQ(cache.m_userQuotaMB, row.user_quota);
    EXPECT_EQ(cache.m_quotaMB, row.quota);
    EXPECT_EQ(cache.FreeSpaceKB(), row.free_kb);
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
  int const steps[] = {1, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 1, 1}; // whether there is space
  int image = 0;
  for (int const has_space : steps) {
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
  EXPECT_EQ(other->AutoCleanPercentage(101), -1);
  EXPECT_EQ(other->AutoCleanPercentage(-1), -1);
  EXPECT_EQ(other->AutoCleanPercentage(0), 0);
  EXPECT_EQ(other->CleanAll(), 0);
  EXPECT_EQ(Studies(*cache), std::set<std::string>());
  EXPECT_EQ(other->Store(Object(5, 1).get(), false), 0) << "a refusal that outlives its cause";
  Disk_CacheRepository unconstructed;
  EXPECT_EQ(unconstructed.Store(Object(1, 1).get(), false), -1);
  EXPECT_EQ(unconstructed.CleanAll(), -1);
  unconstructed.SetPath(FromUTF8("/no/such/folder"));
  EXPECT_EQ(unconstructed.Construct(), -1);
  EXPECT_EQ(unconstructed.Store(Object(1, 1).get(), false), -1);
  EXPECT_EQ(unconstructed.DeleteStudyByInstanceUID(Dicom_UI("1.2")), -1);
}

// A year of stores into a small quota, with fetches in between. Whenever a cleaning was due, those that went are the
// first of a list that is made here, and no more of them than had to go.
TEST_F(CacheTest, AYearOfStores) {
  constexpr int kQuotaMb = 64, kMostKb = 400;
  int const stores = std::getenv("DISK_LONG_TESTS") ? 2000 : 600;
  Configure("push: {max_repository_size_mb: 64, max_repository_hd_percentage: 100, max_cached_studies: 0}\n");
  SizedDisk const disk(100000, 90000);
  auto const cache = Construct();
  std::minstd_rand random(11);
  std::map<std::string, std::set<std::pair<int, int>>> stored; // study: study and image numbers
  int study = 1, image = 0, left_in_study = 10, cleanings = 0, gone = 0, refused = 0;
  for (int i = 0; i < stores && !HasFailure(); ++i) {
    SCOPED_TRACE(i);
    std::time_t const now = kStart + i * (365 * kDay / stores);
    Util_Clock::SetNow(now);
    if (left_in_study-- == 0) {
      ++study;
      image = 0;
      left_in_study = int(random() % 30);
    }
    auto const object = Object(study, ++image, int(random() % kMostKb) + 20);
    long const free_before = cache->FreeSpaceKB() / 1024;
    std::vector<Disk_StudyMetaData> const expected = Order(*cache);
    auto const uid_of = [&](std::size_t i) { return expected[i].m_studyUID.GetText(); };
    auto const before = Studies(*cache);
    bool const is_stored = cache->Store(object.get(), false) == 0;
    refused += !is_stored;
    if (is_stored) stored[Uid(study)].insert({study, image});
    auto after = Studies(*cache);
    std::size_t went = 0;
    for (; went < expected.size() && after.count(uid_of(went)) == 0; ++went) {
      EXPECT_LT(expected[went].GetGrade(), 85);
      if (!is_stored || uid_of(went) != Uid(study)) stored.erase(uid_of(went));
    }
    after.erase(Uid(study));
    for (std::size_t j = went; j < expected.size(); ++j)
      EXPECT_TRUE(uid_of(j) == Uid(study) || after.count(uid_of(j))) << "not the lowest grades went";
    EXPECT_EQ(before.size() - went, after.size() + before.count(Uid(study)));
    gone += int(went);
    if (free_before >= 1) {
      EXPECT_EQ(went, 0u);
    } else {
      ++cleanings;
      // one fewer would not have been enough; the root's file may differ by what the records take
      long freed_kb = free_before * 1024;
      for (std::size_t j = 0; j + 1 < went; ++j)
        freed_kb += expected[j].m_sizeKB;
      EXPECT_LT(freed_kb / 1024, cache->m_spaceFactor + 1);
    }
    EXPECT_LE(Klb_FileSystemUtils::GetDirSize(Prefix().c_str()), kQuotaMb * 1024 + 1024 + kMostKb + 64);
    if (random() % 4 == 0 && !stored.empty()) {
      auto const chosen = std::next(stored.begin(), long(random() % stored.size()));
      IOD_Msg* fetched = nullptr;
      auto const [number, of_image] = *chosen->second.begin();
      EXPECT_EQ(cache->GetOne(Uids(*Object(number, of_image)), 1, &fetched), 0);
      delete fetched;
    }
    if (i % 200 == 199) ExpectSound();
  }
  EXPECT_GT(cleanings, 5);
  std::printf("%d stores, %d refused, %d cleanings, %d studies given up, %zu left\n", stores, refused, cleanings, gone,
              stored.size());
  ExpectSound();
  for (auto const& [uid, images] : stored)
    for (auto const& [number, of_image] : images) {
      IOD_Msg* fetched = nullptr;
      EXPECT_EQ(cache->GetOne(Uids(*Object(number, of_image)), 1, &fetched), 0);
      delete fetched;
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
  ASSERT_EQ(cache->MarkStudyAsAccessed(Dicom_UI(Uid(1))), 0);
  std::ofstream ballast(At("ballast"), std::ios::binary);
  for (std::string const block(4096, 'x'); ballast << block << std::flush;) {
  }
  // young studies stay: the store is refused, by the cache and by the disk itself
  EXPECT_EQ(cache->Store(Object(100, 1, kKb).get(), false), -1);
  EXPECT_EQ(Store(*Open(), *Object(100, 1, kKb)), -1);
  EXPECT_EQ(Studies(*cache).size(), std::size_t(kStudies));
  ExpectNoDamage();
  Util_Clock::SetNow(kStart + 40 * kDay);
  EXPECT_EQ(cache->AutoCleanNStudies(1), 0);
  EXPECT_EQ(Studies(*cache).count(Uid(1)), 0u) << "the one that was read long ago";
  cache->SetThreshold(100);
  EXPECT_EQ(cache->AutoCleanMB(2), 0);
  EXPECT_EQ(cache->Store(Object(101, 1, kKb).get(), false), 0);
  EXPECT_LT(Studies(*cache).size(), std::size_t(kStudies - 5));
  ExpectNoDamage();
  umount2(Prefix().c_str(), MNT_DETACH);
}

// A cleaning waits for one of another process, whoever runs it and whatever signals come, and doesn't for one that was
// killed.
TEST_F(CacheTest, CleaningsDoNotOverlap) {
  for (bool const unprivileged : {false, true}) {
    if (unprivileged && getuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    for (bool const killed : {false, true}) {
      Clear();
      fs::permissions(Prefix(), fs::perms::all);
      Util_Clock::SetNow(kStart);
      auto const drop_privileges = [unprivileged] {
        constexpr unsigned kNobody = 65534;
        return !unprivileged || (setgid(kNobody) == 0 && setuid(kNobody) == 0);
      };
      auto const in_child = [&](auto work) {
        pid_t const child = fork();
        if (child == 0) _exit(drop_privileges() && work() ? 0 : 1);
        return child;
      };
      auto const succeeded = [](pid_t child) {
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
      };
      ASSERT_TRUE(succeeded(in_child([&] {
        umask(0);
        auto const cache = Construct();
        for (int study = 1; study <= 4; ++study)
          if (cache->Store(Object(study, 1).get(), false) == -1 ||
              cache->MarkStudyAsAccessed(Dicom_UI(Uid(study))) == -1)
            return false;
        return true;
      })));
      Util_Clock::SetNow(kStart + 100 * kDay);
      std::string const marker = At("cleaning");
      pid_t const first = in_child([&] {
        auto const cache = Construct();
        FaultyFileSystem const slow([&](std::string_view call, char const* path) {
          if (call == "Unlink" && std::string(path).find("/I") != std::string::npos) {
            std::ofstream(marker).close();
            usleep(200000);
          }
          return 0;
        });
        return cache->AutoCleanNStudies(3) == 0;
      });
      while (!fs::exists(marker))
        usleep(1000);
      if (killed) kill(first, SIGKILL);
      // the second counts what the first has left: it can't have begun before
      EXPECT_TRUE(succeeded(in_child([&] {
        struct sigaction interrupted {};
        interrupted.sa_handler = [](int) {}; // without SA_RESTART
        sigaction(SIGALRM, &interrupted, nullptr);
        ualarm(5000, 5000);
        auto const cache = Construct();
        return cache->AutoCleanNStudies(0) == 0 && (killed || Studies(*cache).size() == 1);
      })));
      EXPECT_EQ(succeeded(first), !killed);
    }
  }
}

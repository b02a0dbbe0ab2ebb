#include "Power.h"
#include "support/LogCapture.h"

namespace fs = std::filesystem;

namespace {

/// Whether a folder may be missing that a record names: only a delete removes it before the record.
bool MayLackFolder(Play const& play, std::string const& path) {
  auto const deletes = [](Play::Act const& act) {
    return act.operation->name.find("delete") != std::string::npos || act.operation->name == "cache clean";
  };
  if (play.c->state == "a delete was killed" || std::any_of(play.acts.begin(), play.acts.end(), deletes)) return true;
  return play.c->state.ends_with("no folder") && path.ends_with("/S1000000"); // what is made anew has another name
}

/// Nothing is damaged but what may be; when all that was done is acknowledged and durable, everything is `sound`.
void Check(Play const& play, std::size_t acked, std::string const& set, bool standard, bool sound) {
  for (Disk_Finding const& finding : CheckAll(set, standard).findings) {
    bool const may_be = finding.kind.starts_with("object-") && play.MayBeAnything(acked, finding.instance_uid);
    bool const is_harmless = finding.cause != Disk_Finding::Damage && (!sound || finding.kind == "version-missing");
    bool const is_explained = finding.kind != "folder-missing" || MayLackFolder(play, finding.path);
    Require((is_harmless && is_explained) || may_be,
            finding.kind + " " + finding.instance_uid + ": " + finding.path + ": " + finding.text);
  }
}

// The next start of the machine

class NextBoot : public Util_FileSystemInterface {
public:
  explicit NextBoot(std::string id) : id_(std::move(id)) { SetCurrent(this); }
  ~NextBoot() override { SetCurrent(nullptr); }
  int Open(char const* path, int flags, mode_t mode) override {
    bool const asks = std::string_view(path) == "/proc/sys/kernel/random/boot_id";
    return Util_FileSystemInterface::Open(asks ? id_.c_str() : path, flags, mode);
  }
  int Fsync(int) override { return 0; }
  int Fdatasync(int) override { return 0; }
  int Syncfs(int) override { return 0; }

private:
  std::string id_; // a file
};

void WriteImage(Disk::Image const& image, std::string const& place) {
  fs::remove_all(place);
  fs::create_directories(place);
  for (auto const& [name, content] : image) {
    if (name.ends_with('/'))
      fs::create_directories(place + "/" + name);
    else
      std::ofstream(place + "/" + name, std::ios::binary) << content;
  }
  std::ofstream(place + ".boot") << "00000000-0000-0000-0000-000000000000\n";
}

bool IsAccessed(Disk_RootDirectoryFile& root) {
  Dicom_Tag const date = Dicom_Dictionary::KOLBA_DICOMDIR_STUDY_ACCESS_DATE;
  Answers const studies = AllStudies(root, {date});
  return studies.size() == 1 && !studies[0]->Text(date).empty();
}

void Judge(Play const& play, State const& cut, std::string const& place, bool thorough) {
  NextBoot const boot(place + ".boot");
  Case const& c = *play.c;
  Site const site{place, c.standard};
  bool const has_source = fs::exists(site.Source());
  if (has_source) {
    auto const source = OpenForAll(site.Source(), 0);
    Require(source != nullptr, "the source can't be opened");
    bool const told = cut.acked == 1 && play.acts[0].durability == kDurable;
    Require(!told || IsAccessed(*source), "the source doesn't tell that its study was fetched");
    Check(play, cut.acked, site.Source(), false, false);
  }
  {
    auto const root = OpenForAll(site.Set(), site.Structure());
    Require(root != nullptr, "it can't be opened");
    play.Compare(cut.acked, Ask(*root, c.standard));
    Require(!fs::exists(site.Set() + "/RELAXED") || fs::is_empty(site.Set() + "/RELAXED"), "RELAXED stays");
  }
  if (fs::exists(site.Set() + "/DICOMDIR")) Check(play, cut.acked, site.Set(), c.standard, cut.sound);
  if (!thorough || play.acts.size() > 1) return;
  if (!has_source) c.operation->bring(site);
  Session session(site, c.operation->flags);
  auto const further = DoAgain(c, session, session);
  Model end = Ask(*OpenForAll(site.Set(), site.Structure()), c.standard);
  Require(end.objects.erase(further->GetSOPInstanceUID().GetText()) == 1, "the further store is lost");
  end.studies.erase(further->GetStudyInstanceUID().GetText());
  play.Compare(cut.acked, end);
}

} // namespace

void JudgeCut(Play const& play, State const& cut, std::string const& place, bool thorough) {
  WriteImage(cut.image, place);
  LogCapture log(3);
  try {
    Judge(play, cut, place, thorough);
  } catch (Complaint const& complaint) {
    std::string text = complaint.what();
    for (auto const& [level, line] : log.Lines())
      text += "\n    " + line;
    throw Complaint(text);
  }
}

// Drives the program as a user does: command lines in; exit codes, text and files out.
#include "support/ProgramFixture.h"
#include "support/Readers.h"

#include <tuple>

namespace {

class FilesetTest : public ProgramTest {};

char const kInfo[] =
    "Structure    private\nVersion      8\nPatients     2\nStudies      2\nSeries       4 (2 CT, 2 SR)\n"
    "Instances    8 (6 IMAGE, 2 SR DOCUMENT)\nStudy dates  ";

TEST_F(FilesetTest, CommandLines) {
  temp.Write("note.txt", "not a file-set");
  temp.Write("config.yaml", "durabilty: full\n");
  fs::create_directories(temp / "empty");
  temp.Write("damaged/DICOMDIR", temp.Read("set/DICOMDIR").substr(0, 150));
  temp.Write("standard/DICOMDIR", temp.Read("set/DICOMDIR")); // no VERSION beside it, and offsets of 0
  std::tuple<char const*, int, char const*, char const*> const cases[] = {
      // parts of what it prints
      {"", 2, "", "subcommand is required"},
      {"--version", 0, "fileset ", ""},
      {"--help", 0, "Example", ""},
      {"quary set", 2, "", "fileset: quary: no such command; is `query` meant?\n"},
      {"query set --limit -1", 2, "", "--limit"},
      {"query set --key StudyDate=abc", 2, "", "abc is no date"},
      {"query set --key StudyDate=-", 2, "", "no range that can hold one"},
      {"query set --key StudyDate=20240101-20230101", 2, "", "no range that can hold one"},
      {"query set --key StudyDate=20230229", 2, "", "20230229 is no date"},
      {"query set --key StudyStoreDate=20240101-", 0, "\n2 studies\n", ""},
      {"query set --key StudyDate=1990.02.28-2100 --key StudyTime=-23:59:60.5", 0, "\n2 studies", ""},
      {"query set --key StudyDate=* --key Manufacturer", 0, "\n2 studies", "fileset: Manufacturer: the rec"},
      {"cache store new in --now 2026-02-31", 2, "", "--now: 2026-02-31 is no date"},
      {"query set --key PatientsNam=x", 2, "", "fileset: --key: PatientsNam: no DICOM keyword"},
      {"query set --key 0008,0052=IMAGE", 2, "", "0008,0052"},
      {"query set --key ConceptNameCodeSequence=1", 2, "", "a sequence"},
      {"query set --key PatientID=1 --key 0010,0020", 2, "", "given twice"},
      {"query set --key PatientID=nobody", 0, "\n0 studies\n", ""},
      {"query set --key Modality=CT", 0, "\n0 studies\n", "fileset: Modality: kept at a lower level"},
      {"query set --limit 1", 0, "\n1 study\n", ""},
      {"query empty", 3, "", "fileset: empty: holds no file-set: there is no DICOMDIR\n"},
      {"query nowhere", 3, "", "fileset: nowhere: No such file or directory\n"},
      {"query note.txt", 3, "", "fileset: note.txt: not a directory\n"},
      {"store note.txt in", 3, "", "fileset: note.txt: not a directory; the file-set is named first"},
      {"query damaged", 3, "", "fileset: damaged: DICOMDIR isn't a directory of DICOM objects"},
      {"query standard", 0, "\n0 studies\n", "fileset: standard: its DICOMDIR has no records\n"},
      {"info standard", 0, "Studies      0\n", "fileset: standard: its DICOMDIR has no records\n"},
      {"fetch standard --all --out out", 0, "0 copied", "standard: its DICOMDIR has no records\n"},
      {"export standard --study 1 --out out", 0, "0 exported", "its DICOMDIR has no records\n"},
      {"store standard in", 3, "", "its DICOMDIR has no records, and nothing can be appended"},
      {"fetch set --out out", 2, "", "say what"},
      {"fetch set --study 1.2.3 --out out", 1, "", "fileset: set: holds no such object\n"},
      {"fetch set --file-id ..\\..\\etc --out out", 1, "0 copied", "..\\..\\etc: Illegal file name\n"},
      {"fetch set --file-id S1/../../note.txt --out out", 1, "0 copied", "Illegal file name\n"},
      {"fetch set --file-id S1\\I1 --out out", 1, "0 copied", "S1\\I1: there is no such file"},
      {"store no/where in", 3, "", "fileset: no/where: can't be made"},
      {"store set set empty", 1, "0 stored, 1 refused", "fileset: set: lies inside of the file-set"},
      {"delete in --study 1.2.3", 3, "", "fileset: in: holds no file-set"},
      {"auto-delete in --free-mb 1 --min-age-days 0 --dry-run", 3, "", "fileset: in: holds no file-set"},
      {"check in", 3, "", "fileset: in: holds no file-set"},
      {"cache status in", 3, "", "fileset: in: holds no file-set"},
      {"cache clean set", 2, "", "fileset: clean: say how much"},
      {"correct set --patient 1 --set StudyDate=2", 2, "", "StudyDate: can't be corrected; these can: PatientName"},
      {"correct set --patient 1 --set PatientName=", 2, "", "fileset: --set: PatientName: a value can't be blanked"},
      {"correct set --patient 1 --set PatientID=a\\b", 2, "", "--set: PatientID: the value must be printable"},
      {"correct set --patient 1 --set 0008,0070=\xFF", 2, "", "--set: 0008,0070: the value must be printable"},
      {"correct set --patient PH1-00001 --set PatientID=2", 1, "", "no such patient with this issuer; "},
      {"scan set --remove", 2, "", "fileset: --remove: nobody can be asked"},
      {"export set --out no", 2, "", "fileset: export: say what"},
      {"export set --study 1 --out set/out", 2, "", "fileset: set/out: lies inside of the file-set"},
      {"fetch set --all --out set/../set", 2, "", "fileset: set/../set: lies inside of the file-set"},
      {"export set --study 1.2.3 --out no", 1, "", "fileset: set: holds no such object"},
      {"info set --config config.yaml", 0, kInfo, "fileset: config.yaml:1: "},
      {"--config none.yaml info set", 2, "", "none.yaml"},
      {"--log . info set", 2, "", "can't be opened for the log"},
      {"--log no/log info set", 2, "", "fileset: --log: no: No such file"},
  };
  for (auto const& [line, code, out, err] : cases) {
    Result const result = Expect(line, code, out, err);
    EXPECT_EQ(result.err.empty(), *err == '\0' && code != 2) << line << "\n" << result.err;
  }
  EXPECT_TRUE(fs::is_empty(temp / "empty")); // asking makes nothing
  for (char const* nothing : {"no", "new", "in/LOCKFILE"})
    EXPECT_FALSE(fs::exists(temp / nothing)) << nothing;
}

TEST_F(FilesetTest, MakesAFileSetOnlyWhereNothingElseStands) {
  ASSERT_EQ(Line("store medium in --standard").code, 0);
  struct {
    std::string setup, options;
    char const* err; // empty: it is made
  } const cases[] = {
      {"mkdir new/lost+found new/SA100000", "", ""},
      {"mkdir new/RELAXED new/S_000001 && touch new/LOCKFILE new/DICOMDIR.tmp new/S_000001/DIRFILE", "", ""},
      {"touch new/note", "", "fileset: new: is no file-set, and isn't empty: --init makes"},
      {"mkdir new/Documents && touch new/Documents/LOCKFILE", "", "and isn't empty"},
      {"mkdir new/SA100000 && touch new/SA100000/note", "", "and isn't empty"},
      {"touch new/note", "--init", ""},
      {"cp -r in/* new", "", "the file-set is named first, and"},
      {"cp -r set/* new && rm new/DICOMDIR", "", "its DICOMDIR is gone"},
      {"cp -r set/* new && rm new/DICOMDIR", "--init", ""},
      {"cp -r medium/* new && rm new/DICOMDIR", "", "its DICOMDIR is gone"},
      {"cp -r medium/* new && rm new/DICOMDIR", "--init", "its DICOMDIR is gone"},
      {"cp -r medium/* new && rm new/DICOMDIR", "--init --standard", ""},
  };
  for (auto const& c : cases)
    for (std::string const command : {"store new in ", "cache store new in "}) {
      if (command[0] == 'c' && c.options.ends_with("standard")) continue;
      Result const result =
          Line(command + c.options, "rm -rf new && mkdir new && " + c.setup + " && find new >before && ");
      EXPECT_EQ(result.code, *c.err ? 3 : 0) << command << c.setup << result.err;
      EXPECT_NE(result.err.find(c.err), std::string::npos) << command << c.setup << result.err;
      EXPECT_EQ(RunTool("cd " + temp.Path() + " && find new | cmp - before").code, *c.err ? 0 : 1) << c.setup;
    }
}

// What doesn't fit ends neither the program nor, but for a full disk, the store.
TEST_F(FilesetTest, TellsWhatTheDiskDoesntTake) {
  SaveObject(*Phantom::Make({.size = 256, .references = {}}), temp / "large");
  Result const large = Line("store limited large in --native", "ulimit -f 100 && ");
  EXPECT_EQ(large.out.substr(0, 20), "8 stored, 1 refused ") << large.err;
  EXPECT_NE(large.err.find(".tmp: File too large\n"), std::string::npos) << large.err;
  std::string const small = "mkdir full && unshare -rm sh -c 'mount -t tmpfs -o size=60k none full && exec \"$@\"' sh ";
  Result const full = Line("store full/set in", small);
  if (full.out.empty()) GTEST_SKIP() << "no file system can be mounted here: " << full.err;
  EXPECT_EQ(full.out.substr(1, 19), " stored, 1 refused ") << full.out;
  EXPECT_NE(full.err.find("device: the disk is full, so it ends here, with " + full.out.substr(0, 8)), full.err.npos);
  EXPECT_EQ(std::count(full.err.begin(), full.err.end(), '\n'), 1) << full.err;
}

TEST_F(FilesetTest, RefusesEachBadFileInALineOfItsOwn) {
  std::string const object = temp.Read("in/" + Phantom::FileName(Small(Phantom::Kind::CT)));
  temp.Write("bad/1 text", "no DICOM at all, but long enough to look");
  temp.Write("bad/2 cut", object.substr(0, object.size() - 100));
  temp.Write("bad/3 empty", "");
  temp.Write("bad/DICOMDIR", temp.Read("set/DICOMDIR"));
  WriteChanged("bad/a\nb.dcm", [](IOD_Msg& msg) { msg.SetPatientID(Dicom_LO("OTHER\x1b[2J")); });
  WriteChanged("bad/c.dcm", [](IOD_Msg& msg) { msg.SetSeriesNumber(Dicom_IS(77)); });
  WriteChanged("bad/d.dcm", [](IOD_Msg& msg) { msg.SetPatientID(LO_NULL); });
  WriteChanged("bad/e.dcm", [](IOD_Msg&) {});
  fs::create_symlink(temp / "in", temp / "bad/f");
  Result const result = Run({"store", "set", "bad", "gone.dcm", "--strict"});
  EXPECT_EQ(result.out.substr(0, 20), "1 stored, 9 refused ");
  char const* const lines[] = {
      "fileset: bad/1 text: not a DICOM file",
      "fileset: bad/2 cut: (7fe0,0010) at offset ",
      "fileset: bad/3 empty: not a DICOM file",
      "fileset: bad/DICOMDIR: a DICOMDIR: a directory of objects, not an object\n",
      "fileset: bad/a\\x0Ab.dcm: Patient ID is OTHER\\x1B[2J, but must be PH",
      "fileset: bad/c.dcm: Series number is 77, but must be 1\n",
      "fileset: bad/d.dcm: Missing Patient ID\n",
      "fileset: bad/f: a symbolic link to a folder: not followed\n",
      "fileset: gone.dcm: can't be read: No such file or directory\n",
  };
  for (char const* line : lines)
    EXPECT_NE(result.err.find(line), std::string::npos) << line << "\n" << result.err;
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 9) << result.err;
  EXPECT_EQ(Run({"store", "set", "bad/c.dcm", "--accept-mismatch"}).code, 0);
  // a disc holds other things too; what is named or damaged, and a store of nothing, are failures all the same
  std::tuple<std::string, std::string, int> const cases[] = {{"disc", "1 stored, 0 refused, 2 skipped", 0},
                                                             {"bad/DICOMDIR disc", "1 stored, 1 refused, 2 skipped", 1},
                                                             {"bad", "1 stored, 4 refused, 3 skipped", 1},
                                                             {"nothing", "0 stored, 0 refused, 1 skipped", 1}};
  std::string const setup = "mkdir -p disc nothing && echo no >nothing/readme && cp nothing/readme bad/DICOMDIR "
                            "bad/e.dcm disc && rm -f bad/f && ";
  for (std::string const command : {"store set ", "cache store set "})
    for (auto const& [what, out, code] : cases) {
      Result const told = Line(command + what, setup);
      EXPECT_EQ(told.code, code) << command << what << told.err;
      EXPECT_EQ(told.out.substr(0, out.size()), out) << command << what << told.err;
    }
}

TEST_F(FilesetTest, QueriesAcrossLevels) {
  std::string const patient = " --key PatientID=" + Phantom::PatientId(Small(Phantom::Kind::CT)).GetText();
  std::pair<std::string, std::size_t> const cases[] = {
      {"study", 2},
      {"study" + patient, 1},
      {"series", 4},
      {"series --key Modality=CT", 2},
      {"series --key 0008,0060=SR --key StudyInstanceUID=" + first_study, 1},
      {"image --key Modality=CT --key InstanceNumber=2", 2},
      {"image --key InstanceNumber=1 --key StudyInstanceUID=" + first_study, 2},
      {"image --key Modality=SR" + patient, 1},
      {"image --key Modality=MR", 0},
  };
  for (auto const& [query, rows] : cases)
    EXPECT_EQ(json::parse(Line("query set --json --level " + query).out, nullptr, false).size(), rows) << query;
  // what stands in the records above comes with the image
  json const images = RunJson({"query", "set", "--level", "image", "--key", "Modality=SR", "--key", "PatientID",
                               "--key", "StudyDate", "--key", "SeriesDescription"});
  ASSERT_EQ(images.size(), 2u);
  EXPECT_EQ(Values(images, "00100020").size(), 2u);
  EXPECT_EQ(Values(images, "0008103E").size(), 1u);
  EXPECT_TRUE(images[0].contains("00080020"));
}

TEST_F(FilesetTest, AnswersInTheJsonModel) {
  auto const original = Phantom::Make(Small(Phantom::Kind::CT));
  json const study = RunJson({"query", "set", "--key", "StudyInstanceUID=" + first_study, "--key", "PatientName",
                              "--key", "NumberOfStudyRelatedInstances", "--key", "StudyStoreDate"})[0];
  std::string const name = original->GetPatientsName().GetText(); // with ideographic and phonetic groups
  ASSERT_EQ(std::count(name.begin(), name.end(), '='), 2) << name;
  json const& groups = study.at("00100010").at("Value").at(0);
  EXPECT_EQ(groups["Alphabetic"].get<std::string>() + "=" + groups["Ideographic"].get<std::string>() + "=" +
                groups["Phonetic"].get<std::string>(),
            name);
  EXPECT_EQ(study.at("00201208"), json({{"vr", "IS"}, {"Value", {4}}}));
  EXPECT_EQ(study.at("00091018").at("vr"), "DT");

  // the table shows the same name, however long, and finds it by a part in kanji
  std::string const kanji = groups["Ideographic"].get<std::string>();
  Result const table = Run({"query", "set", "--key", "PatientName=*=" + kanji.substr(0, 3) + "*"});
  EXPECT_NE(table.out.find(name), std::string::npos) << table.out;
  EXPECT_NE(table.out.find("\n1 study\n"), std::string::npos) << table.out;

  json const image = RunJson({"query", "set", "--level", "image", "--key", "Modality=CT", "--key", "IconImageSequence",
                              "--key", "Rows", "--limit", "1"})[0];
  EXPECT_EQ(image.at("00280010"), json({{"vr", "US"}, {"Value", {16}}}));
  json const& icon = image.at("00880200").at("Value").at(0);
  EXPECT_EQ(image.at("00880200").at("vr"), "SQ");
  ASSERT_TRUE(icon.at("7FE00010").contains("InlineBinary")) << image;
  EXPECT_EQ(icon.at("7FE00010")["InlineBinary"].get<std::string>().size() % 4, 0u);
}

TEST_F(FilesetTest, FetchesWhatWasStored) {
  constexpr Dicom_Tag kPixels(0x7FE0, std::uint16_t(0x0010));
  json const fetched = RunJson({"fetch", "set", "--study", first_study, "--out", "out/deep", "--decompress"});
  EXPECT_EQ(fetched["fetched"], 4);
  std::string const uid = ImageOf(Small(Phantom::Kind::CT));
  auto const copy = ReadObject(temp / "out/deep/" + uid + ".dcm"), original = Phantom::Make(Small(Phantom::Kind::CT));
  EXPECT_TRUE(*copy->Get(kPixels) == *original->Get(kPixels));
  // as stored: the bytes of the file-set's own file
  std::string const path = PathOf("image", "SOPInstanceUID=" + uid);
  std::string id = path.substr(sizeof "set");
  std::replace(id.begin(), id.end(), '/', '\\');
  Expect("fetch set --out out --image " + uid, 0);
  EXPECT_EQ(temp.Read("out/" + uid + ".dcm"), temp.Read(path));
  temp.Write("out/" + uid + ".dcm", "mine");
  EXPECT_EQ(Expect("fetch set --out out --file-id " + id, 1).err, "fileset: out/" + uid + ".dcm: File exists\n");
  EXPECT_EQ(temp.Read("out/" + uid + ".dcm"), "mine");
  Expect("fetch set --out out --force --file-id " + id, 0);
  EXPECT_EQ(temp.Read("out/" + uid + ".dcm"), temp.Read(path));
  // no temporary file stays: `deep` and the copy
  EXPECT_EQ(std::distance(fs::directory_iterator(temp / "out"), {}), 2);
}

TEST_F(FilesetTest, FetchKeepsHostileNamesInTheFolder) {
  for (char const* name : {"../../../escaped", ".hidden", "a/b"}) {
    WriteChanged("hostile.dcm", [name](IOD_Msg& msg) { msg.SetSOPInstanceUID(Dicom_UI(name)); });
    Expect("store hostile hostile.dcm", 0);
  }
  Expect("fetch hostile --all --out out", 0);
  std::set<std::string> found;
  for (auto const& entry : fs::directory_iterator(temp / "out"))
    found.insert(entry.path().filename());
  EXPECT_EQ(found, (std::set<std::string>{"_._.._.._escaped.dcm", "_hidden.dcm", "a_b.dcm"}));
}

TEST_F(FilesetTest, MovesFilesAsTheyAre) {
  Phantom::Object const object = Small(Phantom::Kind::CT);
  std::string const source = "in/" + Phantom::FileName(object), bytes = temp.Read(source);
  fs::create_symlink(temp / source, temp / "link");
  Expect("store moved link --move", 1);
  Expect("store moved --move --durable " + source, 0);
  EXPECT_FALSE(fs::exists(temp / source));
  Expect("fetch moved --all --out out", 0);
  EXPECT_EQ(temp.Read("out/" + ImageOf(object) + ".dcm"), bytes);
}

} // namespace

// Drives the program as a user does: command lines in; exit codes, text and files out.
#include "support/ProgramFixture.h"
#include "support/Readers.h"

#include <algorithm>

namespace {

class FilesetTest : public ProgramTest {};

TEST_F(FilesetTest, CommandLines) {
  temp.Write("note.txt", "not a file-set");
  temp.Write("config.yaml", "durabilty: full\n");
  fs::create_directories(temp / "empty");
  temp.Write("damaged/DICOMDIR", temp.Read("set/DICOMDIR").substr(0, 150));
  temp.Write("standard/DICOMDIR", temp.Read("set/DICOMDIR")); // no VERSION beside it, and offsets of 0
  struct Case {
    std::vector<std::string> arguments;
    int code;
    char const* out; // a part of it
    char const* err;
  } const cases[] = {
      {{}, 2, "", "subcommand is required"},
      {{"--version"}, 0, "fileset ", ""},
      {{"--help"}, 0, "Example", ""},
      {{"query", "--help"}, 0, "Examples", ""},
      {{"quary", "set"}, 2, "", "fileset: quary: no such command; is `query` meant?\n"},
      {{"query", "set", "--limit", "-1"}, 2, "", "--limit"},
      {{"query", "set", "--key", "StudyDate=abc"}, 2, "", "abc is no date"},
      {{"query", "set", "--key", "StudyDate=-"}, 2, "", "no range that can hold one"},
      {{"query", "set", "--key", "StudyDate=20240101-20230101"}, 2, "", "no range that can hold one"},
      {{"query", "set", "--key", "StudyDate=20230229"}, 2, "", "20230229 is no date"},
      {{"query", "set", "--key", "StudyStoreDate=20240101-"}, 0, "\n2 studies\n", ""},
      {{"query", "set", "--key", "StudyDate=1990.02.28-2100", "--key", "StudyTime=-23:59:60.5"}, 0, "\n2 studies", ""},
      {{"query", "set", "--key", "StudyDate=*", "--key", "Manufacturer"},
       0,
       "\n2 studies",
       "fileset: Manufacturer: the rec"},
      {{"cache", "store", "new", "in", "--now", "2026-02-31"}, 2, "", "--now: 2026-02-31 is no date"},
      {{"query"}, 2, "", "DIR is required"},
      {{"query", "set", "--level", "patient"}, 2, "", "--level: patient"},
      {{"query", "set", "--key", "PatientsNam=x"}, 2, "", "fileset: --key: PatientsNam: no DICOM keyword"},
      {{"query", "set", "--key", "0008,0052=IMAGE"}, 2, "", "0008,0052"},
      {{"query", "set", "--key", "ConceptNameCodeSequence=1"}, 2, "", "a sequence"},
      {{"query", "set", "--key", "PatientID=1", "--key", "0010,0020"}, 2, "", "given twice"},
      {{"query", "set", "--key", "PatientID=nobody"}, 0, "\n0 studies\n", ""},
      {{"query", "set", "--key", "Modality=CT"}, 0, "\n0 studies\n", "fileset: Modality: kept at a lower level"},
      {{"query", "set", "--limit", "1"}, 0, "\n1 study\n", ""},
      {{"query", "empty"}, 3, "", "fileset: empty: holds no file-set: there is no DICOMDIR\n"},
      {{"query", "nowhere"}, 3, "", "fileset: nowhere: No such file or directory\n"},
      {{"query", "note.txt"}, 3, "", "fileset: note.txt: not a directory\n"},
      {{"query", "damaged"}, 3, "", "fileset: damaged: DICOMDIR isn't a directory of DICOM objects"},
      {{"query", "standard"}, 0, "\n0 studies\n", "fileset: standard: its DICOMDIR has no records\n"},
      {{"info", "standard"}, 0, "Studies      0\n", "fileset: standard: its DICOMDIR has no records\n"},
      {{"fetch", "standard", "--all", "--out", "out"}, 0, "0 copied", "standard: its DICOMDIR has no records\n"},
      {{"export", "standard", "--study", "1", "--out", "out"}, 0, "0 exported", "its DICOMDIR has no records\n"},
      {{"store", "standard", "in"}, 3, "", "its DICOMDIR has no records, and nothing can be appended"},
      {{"fetch", "set", "--all"}, 2, "", "--out is required"},
      {{"fetch", "set", "--out", "out"}, 2, "", "say what"},
      {{"fetch", "set", "--study", "1", "--all", "--out", "out"}, 2, "", "excludes"},
      {{"fetch", "set", "--study", "1.2.3", "--out", "out"}, 1, "", "fileset: set: holds no such object\n"},
      {{"fetch", "nowhere", "--all", "--out", "out"}, 3, "", "nowhere"},
      {{"fetch", "set", "--file-id", "..\\..\\etc", "--out", "out"}, 1, "0 copied", "..\\..\\etc: Illegal file name\n"},
      {{"fetch", "set", "--file-id", "S1/../../note.txt", "--out", "out"}, 1, "0 copied", "Illegal file name\n"},
      {{"fetch", "set", "--file-id", "S1\\I1", "--out", "out"}, 1, "0 copied", "S1\\I1: there is no such file"},
      {{"store", "no/where", "in"}, 3, "", "fileset: no/where: can't be made"},
      {{"store", "set", "in", "--move", "--native"}, 2, "", "excludes"},
      {{"store", "set", "set", "empty"}, 1, "0 stored, 1 refused", "fileset: set: lies inside of the file-set"},
      {{"info", "set", "--config", "config.yaml"}, 0, "private", "fileset: config.yaml:1: "},
      {{"--config", "none.yaml", "info", "set"}, 2, "", "none.yaml"},
      {{"--log", ".", "info", "set"}, 2, "", "can't be opened for the log"},
      {{"--log", "no/log", "info", "set"}, 2, "", "fileset: --log: no: No such file"},
      {{"--log-level", "8", "info", "set"}, 2, "", "--log-level"},
  };
  for (Case const& c : cases) {
    Result const result = Run(c.arguments);
    std::string line;
    for (std::string const& argument : c.arguments)
      line += argument + " ";
    EXPECT_EQ(result.code, c.code) << line;
    EXPECT_NE(result.out.find(c.out), std::string::npos) << line << "\n" << result.out;
    EXPECT_NE(result.err.find(c.err), std::string::npos) << line << "\n" << result.err;
    EXPECT_EQ(result.err.empty(), *c.err == '\0' && c.code != 2) << line << "\n" << result.err;
  }
  EXPECT_TRUE(fs::is_empty(temp / "empty")); // asking makes nothing
  for (char const* nothing : {"no", "new", "in/LOCKFILE"})
    EXPECT_FALSE(fs::exists(temp / nothing)) << nothing;
}

TEST_F(FilesetTest, MakesAFileSetOnlyWhereNothingElseStands) {
  ASSERT_EQ(Line("store medium in --standard").code, 0);
  struct Case {
    std::string setup, options;
    char const* err; // empty: it is made
  } const cases[] = {
      {"mkdir new/lost+found new/SA100000", "", ""},
      {"mkdir new/RELAXED new/S_000001 && touch new/LOCKFILE new/DICOMDIR.tmp new/S_000001/DIRFILE", "", ""},
      {"touch new/note", "",
       "fileset: new: is no file-set, and isn't empty: a new one is made in an empty folder, or with"},
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
  for (Case const& c : cases) {
    for (std::string const command : {"store new in ", "cache store new in "}) {
      if (command[0] == 'c' && c.options.ends_with("standard")) continue;
      Result const result =
          Line(command + c.options, "rm -rf new && mkdir new && " + c.setup + " && find new >before && ");
      EXPECT_EQ(result.code, *c.err ? 3 : 0) << command << c.setup << result.err;
      EXPECT_NE(result.err.find(c.err), std::string::npos) << command << c.setup << result.err;
      bool const is_same = RunTool("cd " + temp.Path() + " && find new | cmp - before").code == 0;
      EXPECT_EQ(is_same, *c.err != '\0') << command << c.setup;
    }
  }
}

// What doesn't fit ends neither the program nor, but for a full disk, the store.
TEST_F(FilesetTest, TellsWhatTheDiskDoesntTake) {
  SaveObject(*Phantom::Make({.size = 256, .references = {}}), temp / "large");
  Result const large = Line("store limited large in --native", "ulimit -f 100 && ");
  EXPECT_EQ(large.out.substr(0, 20), "8 stored, 1 refused ") << large.err;
  EXPECT_NE(large.err.find(".tmp: File too large\n"), std::string::npos) << large.err;
  Result const full =
      Line("store full/set in", "mkdir full && unshare -rm sh -c 'mount -t tmpfs -o size=60k none full && "
                                "exec \"$@\"' sh ");
  if (full.out.empty()) GTEST_SKIP() << "no file system can be mounted here: " << full.err;
  EXPECT_EQ(full.code, 1);
  EXPECT_EQ(full.out.substr(1, 19), " stored, 1 refused ") << full.out;
  std::string const told =
      "No space left on device: the disk is full, so the store ends here, with " + full.out.substr(0, 8);
  EXPECT_NE(full.err.find(told), std::string::npos) << full.err;
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
  EXPECT_EQ(result.code, 1);
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
  struct Case {
    char const *what, *out;
    int code;
  } const cases[] = {{"disc", "1 stored, 0 refused, 2 skipped", 0},
                     {"disc/readme disc", "1 stored, 1 refused, 2 skipped", 1},
                     {"bad/DICOMDIR disc", "1 stored, 1 refused, 2 skipped", 1},
                     {"bad", "1 stored, 4 refused, 3 skipped", 1},
                     {"nothing", "0 stored, 0 refused, 1 skipped", 1}};
  for (char const* file : {"disc/readme", "nothing/readme"})
    temp.Write(file, "no DICOM at all");
  fs::remove(temp / "bad/f");
  fs::copy(temp / "bad/DICOMDIR", temp / "disc");
  fs::copy(temp / "bad/e.dcm", temp / "disc");
  for (std::string const command : {"store set ", "cache store set "})
    for (Case const& c : cases) {
      Result const told = Line(command + c.what);
      EXPECT_EQ(told.code, c.code) << command << c.what << told.err;
      EXPECT_EQ(told.out.substr(0, std::strlen(c.out)), c.out) << command << c.what << told.err;
    }
}

TEST_F(FilesetTest, QueriesAcrossLevels) {
  struct Case {
    char const* level;
    std::vector<std::string> keys;
    std::size_t rows;
  } const cases[] = {
      {"study", {}, 2},
      {"study", {"StudyInstanceUID=" + first_study}, 1},
      {"study", {"PatientID=" + Phantom::PatientId(Small(Phantom::Kind::CT)).GetText()}, 1},
      {"series", {}, 4},
      {"series", {"Modality=CT"}, 2},
      {"series", {"0008,0060=SR", "StudyInstanceUID=" + first_study}, 1},
      {"image", {}, 8},
      {"image", {"Modality=CT"}, 6},
      {"image", {"Modality=CT", "InstanceNumber=2"}, 2},
      {"image", {"StudyInstanceUID=" + first_study, "InstanceNumber=1"}, 2},
      {"image", {"PatientID=" + Phantom::PatientId(Small(Phantom::Kind::CT, 2)).GetText(), "Modality=SR"}, 1},
      {"image", {"PatientID=nobody"}, 0},
      {"image", {"Modality=MR"}, 0},
  };
  for (Case const& c : cases) {
    std::vector<std::string> arguments = {"query", "set", "--level", c.level};
    for (std::string const& key : c.keys)
      arguments.insert(arguments.end(), {"--key", key});
    json const rows = RunJson(arguments);
    ASSERT_TRUE(rows.is_array());
    EXPECT_EQ(rows.size(), c.rows) << c.level << " " << (c.keys.empty() ? "" : c.keys[0]);
  }
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
  json const fetched = RunJson({"fetch", "set", "--study", first_study, "--out", "out/deep", "--decompress"});
  EXPECT_EQ(fetched["fetched"], 4);
  for (int image : {1, 2, 3}) {
    Phantom::Object const object = Small(Phantom::Kind::CT, 1, 1, image);
    auto const copy = ReadObject(temp / "out/deep/" + Phantom::InstanceUid(object).GetText() + ".dcm");
    ASSERT_TRUE(copy);
    auto const original = Phantom::Make(object);
    for (int i = 0; i < original->GetNElements(); ++i) {
      Dicom_Tag const tag = original->GetElement(i)->GetTag();
      ASSERT_TRUE(copy->Get(tag)) << std::hex << tag.Number();
      EXPECT_TRUE(*copy->Get(tag) == *original->Get(tag)) << std::hex << tag.Number();
    }
  }
  // as stored: the bytes of the file-set's own file
  std::string const uid = Phantom::InstanceUid(Small(Phantom::Kind::CT)).GetText();
  json const row = RunJson({"query", "set", "--level", "image", "--key", "SOPInstanceUID=" + uid, "--key",
                            "ReferencedFileID"})[0]["00041500"]["Value"];
  std::string path = "set", id;
  for (json const& part : row) {
    path += "/" + part.get<std::string>();
    id += (id.empty() ? "" : "\\") + part.get<std::string>();
  }
  EXPECT_EQ(Run({"fetch", "set", "--image", uid, "--out", "out"}).code, 0);
  EXPECT_EQ(temp.Read("out/" + uid + ".dcm"), temp.Read(path));
  temp.Write("out/" + uid + ".dcm", "mine");
  Result const refused = Run({"fetch", "set", "--file-id", id, "--out", "out"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.err, "fileset: out/" + uid + ".dcm: File exists\n");
  EXPECT_EQ(temp.Read("out/" + uid + ".dcm"), "mine");
  EXPECT_EQ(Run({"fetch", "set", "--file-id", id, "--out", "out", "--force"}).code, 0);
  EXPECT_EQ(temp.Read("out/" + uid + ".dcm"), temp.Read(path));
  EXPECT_EQ(std::distance(fs::directory_iterator(temp / "out"), {}),
            2); // no temporary file stays: `deep` and the copy
}

TEST_F(FilesetTest, FetchKeepsHostileNamesInTheFolder) {
  char const* const names[] = {"../../../escaped", ".hidden", "a/b"};
  for (char const* name : names) {
    WriteChanged("hostile.dcm", [name](IOD_Msg& msg) { msg.SetSOPInstanceUID(Dicom_UI(name)); });
    ASSERT_EQ(Run({"store", "hostile", "hostile.dcm"}).code, 0);
  }
  EXPECT_EQ(Run({"fetch", "hostile", "--all", "--out", "out"}).code, 0);
  std::set<std::string> found;
  for (auto const& entry : fs::directory_iterator(temp / "out"))
    found.insert(entry.path().filename());
  EXPECT_EQ(found, (std::set<std::string>{"_._.._.._escaped.dcm", "_hidden.dcm", "a_b.dcm"}));
}

TEST_F(FilesetTest, MovesFilesAsTheyAre) {
  Phantom::Object const object = Small(Phantom::Kind::CT);
  std::string const source = "in/" + Phantom::FileName(object), bytes = temp.Read(source);
  fs::create_symlink(temp / source, temp / "link");
  EXPECT_EQ(Run({"store", "moved", "link", "--move"}).code, 1);
  EXPECT_EQ(Run({"store", "moved", source, "--move", "--durable"}).code, 0);
  EXPECT_FALSE(fs::exists(temp / source));
  EXPECT_EQ(Run({"fetch", "moved", "--all", "--out", "out"}).code, 0);
  EXPECT_EQ(temp.Read("out/" + Phantom::InstanceUid(object).GetText() + ".dcm"), bytes);
}

TEST_F(FilesetTest, InfoCounts) {
  json const info = RunJson({"info", "set"});
  EXPECT_EQ(info["structure"], "private");
  EXPECT_EQ(info["version"], 8);
  EXPECT_EQ(info["patients"], 2);
  EXPECT_EQ(info["studies"], 2);
  EXPECT_EQ(info["series_by_modality"], json({{"CT", 2}, {"SR", 2}}));
  EXPECT_EQ(info["instances_by_kind"], json({{"IMAGE", 6}, {"SR DOCUMENT", 2}}));
  EXPECT_GT(info["size_kb"], 8);
}

TEST_F(FilesetTest, DeletesWhatIsNamed) {
  Result const dry = Run({"delete", "set", "--study", first_study, "1.2.3", "--dry-run"});
  EXPECT_EQ(dry.out, "would delete study " + first_study + ", 4 images\n");
  EXPECT_EQ(dry.err, "fileset: 1.2.3: no such study in the file-set\n");
  EXPECT_EQ(dry.code, 1);
  EXPECT_EQ(Run({"delete", "set"}).code, 2);
  EXPECT_EQ(Run({"delete", "empty", "--study", "1.2.3"}).code, 3);
  json const one = RunJson(
      {"query", "set", "--level", "image", "--key", "StudyInstanceUID=" + first_study, "--key", "SOPInstanceUID"})[0];
  std::string const image = one["00080018"]["Value"][0];
  EXPECT_EQ(Run({"delete", "set", "--image", image}).out, "1 image deleted, 0 failed\n");
  EXPECT_EQ(Run({"delete", "set", "--study", first_study}).out, "3 images deleted, 0 failed\n");
  EXPECT_EQ(RunJson({"info", "set"})["studies"], 1);
}

TEST_F(FilesetTest, ADamagedStudyHidesNoOther) {
  json const studies =
      RunJson({"query", "set", "--key", "StudyInstanceUID=" + first_study, "--key", "ReferencedFileID"});
  std::string const file = "set/" + studies[0]["00041500"]["Value"][0].get<std::string>() + "/DIRFILE";
  temp.Write(file, temp.Read(file).substr(0, 400));
  Result const result = Run({"query", "set", "--level", "image"});
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.err.find("fileset: study " + first_study + ": " + file), std::string::npos) << result.err;
  EXPECT_NE(result.out.find("\n4 images\n"), std::string::npos) << result.out;
}

} // namespace

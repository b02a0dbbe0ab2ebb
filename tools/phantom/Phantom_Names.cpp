#include "Phantom_Identity.h"

#include <iterator>

namespace Phantom {

namespace {

// A part of a name in Latin letters, and where the script has them its ideographic and phonetic forms.
struct Part {
  char const* latin;
  char const* ideographic = nullptr;
  char const* phonetic = nullptr;
};

constexpr int kFamilies = 6;
constexpr int kGivens = 6; // women's at even places

struct Script {
  char const* terms;
  char const* institution;
  Part families[kFamilies];
  Part givens[kGivens];
};

constexpr Script kScripts[] = {
    {"",
     "Riverside Hospital",
     {{"Miller"}, {"Carter"}, {"O'Neill"}, {"Novak"}, {"Brown"}, {"de Vries"}},
     {{"Alice"}, {"John"}, {"Emma"}, {"Robert"}, {"Julia"}, {"Peter"}}},
    {"ISO_IR 100",
     "Städtisches Klinikum Süd",
     {{"Müller"}, {"García"}, {"Sørensen"}, {"Lefèvre"}, {"Größing"}, {"Åkerblom"}},
     {{"Zoë"}, {"Jürgen"}, {"Renée"}, {"José"}, {"Søs"}, {"Björn"}}},
    {"ISO_IR 192", "", {}, {}}, // takes turns
    {"ISO_IR 126",
     "Γενικό Νοσοκομείο",
     {{"Παπαδόπουλος"}, {"Βασιλείου"}, {"Ιωάννου"}, {"Νικολάου"}, {"Γεωργίου"}, {"Δημητρίου"}},
     {{"Ελένη"}, {"Διονύσιος"}, {"Μαρία"}, {"Γιώργος"}, {"Σοφία"}, {"Κώστας"}}},
    {"ISO_IR 144",
     "Городская больница",
     {{"Иваненко"}, {"Петренко"}, {"Черных"}, {"Шевчук"}, {"Белых"}, {"Седых"}},
     {{"Ольга"}, {"Пётр"}, {"Наталья"}, {"Сергей"}, {"Юлия"}, {"Андрей"}}},
    {"\\ISO 2022 IR 87",
     "中央病院",
     {{"Yamada", "山田", "やまだ"},
      {"Suzuki", "鈴木", "すずき"},
      {"Tanaka", "田中", "たなか"},
      {"Mori", "森", "もり"},
      {"Ono", "小野", "おの"},
      {"Ito", "伊藤", "いとう"}},
     {{"Hanako", "花子", "はなこ"},
      {"Tarou", "太郎", "たろう"},
      {"Yuko", "裕子", "ゆうこ"},
      {"Ichiro", "一郎", "いちろう"},
      {"Keiko", "恵子", "けいこ"},
      {"Kenji", "健二", "けんじ"}}},
    {"\\ISO 2022 IR 149",
     "중앙병원",
     {{"Hong", "洪", "홍"},
      {"Kim", "金", "김"},
      {"Lee", "李", "이"},
      {"Park", "朴", "박"},
      {"Choi", "崔", "최"},
      {"Jung", "鄭", "정"}},
     {{"Jiyoung", "智英", "지영"},
      {"Gildong", "吉洞", "길동"},
      {"Minji", "敏智", "민지"},
      {"Sungmin", "成民", "성민"},
      {"Soojin", "秀珍", "수진"},
      {"Junho", "俊浩", "준호"}}},
    {"GB18030",
     "中心医院",
     {{"Wang", "王"}, {"Li", "李"}, {"Zhang", "张"}, {"Liu", "刘"}, {"Chen", "陈"}, {"Zhao", "赵"}},
     {{"XiuYing", "秀英"}, {"XiaoDong", "小东"}, {"Li", "丽"}, {"Wei", "伟"}, {"Fang", "芳"}, {"JianGuo", "建国"}}},
};
static_assert(std::size(kScripts) == std::size_t(Charset::Chinese) + 1);

Script const& ScriptOf(Charset charset, int patient) {
  if (charset != Charset::Utf8) return kScripts[std::size_t(charset)];
  constexpr Charset kTurns[] = {Charset::Latin1,   Charset::Japanese, Charset::Greek,
                                Charset::Cyrillic, Charset::Korean,   Charset::Chinese};
  return kScripts[std::size_t(kTurns[std::size_t(patient) % std::size(kTurns)])];
}

std::string FullName(Script const& script, std::uint64_t number) {
  Part const& family = script.families[number / kGivens % kFamilies];
  Part const& given = script.givens[number % kGivens];
  std::string name = std::string(family.latin) + "^" + given.latin;
  if (family.ideographic) name += std::string("=") + family.ideographic + "^" + given.ideographic;
  if (family.phonetic) name += std::string("=") + family.phonetic + "^" + given.phonetic;
  return name;
}

} // namespace

Person Patient(Object const& object) {
  // every patient a step further, so that a file-set of few patients has no name twice
  constexpr std::uint64_t kStep = 7;
  std::uint64_t const number =
      Number(object, Purpose::Patient, Level::File) % kStep + std::uint64_t(object.patient) * kStep;
  return {FullName(ScriptOf(object.charset, object.patient), number), number % kGivens % 2 == 0};
}

std::string Physician(Object const& object, int index) {
  std::uint64_t const number = Number(object, Purpose::Physician, Level::Study) % 1000;
  return FullName(ScriptOf(object.charset, object.patient), number + 11 * std::uint64_t(index));
}

std::string Institution(Charset charset, int patient) { return ScriptOf(charset, patient).institution; }

std::string_view CharacterSetTerms(Charset charset) { return kScripts[std::size_t(charset)].terms; }

} // namespace Phantom

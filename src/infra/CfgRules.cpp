#include "CfgRules.h"
#include <climits>
#include <set>

namespace {

enum class Kind { Map, Integer, Text, Durability, IntegersByName, TextsByName };

struct Rule {
  std::string_view path;
  Kind kind;
  char const* wanted; // of the value, or of each value of a table
  int minimum = 0;
  int maximum = INT_MAX;
};

constexpr char map[] = "a mapping";
constexpr char size[] = "an integer, at least 0";

constexpr Rule rules[] = {
    {"push", Kind::Map, map},
    {"push\\max_cached_studies", Kind::Integer, "an integer", INT_MIN},
    {"push\\max_repository_size_mb", Kind::Integer, size},
    {"push\\max_repository_hd_percentage", Kind::Integer, size},
    {"push\\repository_hd_percentage_spare", Kind::Integer, size},
    {"push\\modality_image_size", Kind::IntegersByName, size},
    {"durability", Kind::Durability, "full or relaxed"},
    {"log", Kind::Map, map},
    {"log\\file", Kind::Text, "a text"},
    {"log\\level", Kind::Integer, "an integer from 3 to 7", 3, 7},
    {"velquant", Kind::Map, map},
    {"velquant\\system", Kind::Map, map},
    {"velquant\\system\\applications", Kind::Map, map},
    {"velquant\\system\\applications\\loader", Kind::Map, map},
    {"velquant\\system\\applications\\loader\\pull_client", Kind::Map, map},
    {"velquant\\system\\applications\\loader\\pull_client\\store_grader", Kind::TextsByName, "a text"},
    {"velquant\\system\\applications\\loader\\pull_client\\access_grader", Kind::TextsByName, "a text"},
};

Rule const* find_rule(std::string_view path) {
  for (Rule const& rule : rules)
    if (rule.path == path) return &rule;
  return nullptr;
}

bool fits(CfgItem const& item, Rule const& rule) {
  if (item.kind != CfgItem::Text) return false;
  if (rule.kind == Kind::Durability) return item.value == "full" || item.value == "relaxed";
  if (rule.kind != Kind::Integer && rule.kind != Kind::IntegersByName) return true;
  int number = 0;
  return Tree_Node::ParseInteger(item.value, number) && number >= rule.minimum && number <= rule.maximum;
}

class Checker {
public:
  explicit Checker(CfgReport const& report) : report_(report) {}

  void CopyMap(CfgItem const& from, Tree_Node& to, std::string const& path) {
    std::set<std::string_view> seen;
    for (CfgItem const& item : from.items) {
      std::string const below = path.empty() ? item.name : path + "\\" + item.name;
      Rule const* const rule = find_rule(below);
      if (!rule)
        report_(item.line, "unknown key " + below);
      else if (!seen.insert(item.name).second)
        report_(item.line, "second " + below);
      else
        copy(item, to, *rule);
    }
  }

private:
  void copy(CfgItem const& item, Tree_Node& to, Rule const& rule) {
    bool const table = rule.kind == Kind::IntegersByName || rule.kind == Kind::TextsByName;
    if (rule.kind != Kind::Map && !table)
      copy_value(item, to, rule, std::string(rule.path));
    else if (item.kind == CfgItem::Map && table)
      copy_table(item, *to.AddChild(item.name), rule);
    else if (item.kind == CfgItem::Map)
      CopyMap(item, *to.AddChild(item.name), std::string(rule.path));
    else if (item.kind != CfgItem::Null)
      report_(item.line, std::string(rule.path) + " must be " + map);
  }

  // A table of texts may have a name twice: who reads it goes by its order.
  void copy_table(CfgItem const& from, Tree_Node& to, Rule const& rule) {
    std::set<std::string_view> seen;
    for (CfgItem const& item : from.items) {
      std::string const path = std::string(rule.path) + "\\" + item.name;
      if (rule.kind == Kind::IntegersByName && !seen.insert(item.name).second)
        report_(item.line, "second " + path);
      else
        copy_value(item, to, rule, path);
    }
  }

  void copy_value(CfgItem const& item, Tree_Node& to, Rule const& rule, std::string const& path) {
    if (fits(item, rule))
      to.AddChild(item.name)->SetValue(item.value);
    else
      report_(item.line, path + " must be " + rule.wanted);
  }

  CfgReport const& report_;
};

} // namespace

void CopyByRules(CfgItem const& top, Tree_Node& root, CfgReport const& report) {
  Checker(report).CopyMap(top, root, "");
}

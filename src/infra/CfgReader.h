// Turns the text of a YAML file into items that know their line. Knows nothing of what a configuration may
// hold.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct CfgItem {
  enum Kind { Null, Text, Map, Other }; // Other: a sequence or an alias, whose content isn't kept

  std::string name;
  std::string value;
  Kind kind = Null;
  int line = 0; // of the name, from 1
  std::vector<CfgItem> items;
};

struct CfgRefusal {
  int line = 0;
  std::string text;
};

// 0 or -1. An empty file gives an empty map.
int ReadCfg(std::string_view text, CfgItem& top, CfgRefusal& refusal);

// What holds for every file that can be read: it can be written in each syntax, what was written reads back equal,
// and going on to the native syntax and back changes nothing more. Copies of its elements are equal to them, and so
// is what is read back when they have been written. Used by tests and by the fuzzer.
#pragma once

#include "support/DataSetBytes.h"

#include <dicom/Dicom_CharacterSet.h>
#include <dicom/Dicom_DataDictionary.h>
#include <dicom/Dicom_UIDic.h>
#include <dicom/IOD_Msg.h>
#include <dicom/Util_File.h>

#include <memory>
#include <string>
#include <string_view>

class DataSetProperty {
public:
  // Empty when the file holds to it, or can't be read; else what is wrong. `read` tells whether it was read.
  static std::string Broken(std::string_view file, bool* read = nullptr) {
    std::unique_ptr<IOD_Msg> const msg = Read(file);
    if (read) *read = msg != nullptr;
    if (!msg) return {};
    for (int i = 0; i < msg->GetNElements();) { // would be taken for those of the file
      if (msg->GetElement(i)->GetTag().Group() != 2) {
        ++i;
      } else {
        msg->Remove(msg->GetElement(i)->GetTag());
      }
    }
    for (Dicom_UI const& syntax : {Dicom_UIDic::EXPLICIT_VR_LITTLE_ENDIAN, Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN,
                                   Dicom_UIDic::EXPLICIT_VR_BIG_ENDIAN}) {
      std::string const broken = broken_in(*msg, syntax);
      if (!broken.empty()) return syntax.GetText() + ": " + broken;
    }
    return broken_by_copying(*msg);
  }

  static std::unique_ptr<IOD_Msg> Read(std::string_view file) {
    Util_File in;
    in.GetBytes(file);
    return std::unique_ptr<IOD_Msg>(in);
  }

  // False when the message has no form in the syntax.
  static bool Dump(Dicom_Msg const& msg, Dicom_UI const& uid, std::string* bytes) {
    Dicom_TransferSyntax const syntax(uid, nullptr);
    bytes->assign(msg.GetDumpLen(syntax, 0, {}), '\0');
    return msg.Dump(bytes->data(), unsigned(bytes->size()), syntax, 0, nullptr) == int(bytes->size());
  }

  // Element by element; group lengths don't count. Implicit VR may have changed VRs.
  static std::string Difference(Dicom_Msg const& a, Dicom_Msg const& b, bool implicit) {
    for (int i = 0, j = 0;; ++i, ++j) {
      Dicom_ME const *const x = next(a, &i), *const y = next(b, &j);
      if (!x || !y) return x ? name(*x) + " is lost" : y ? name(*y) + " is new" : "";
      if (x->GetTag().Number() != y->GetTag().Number()) return name(*x) + " has become " + name(*y);
      std::string const wrong = difference(*x, *y, implicit);
      if (!wrong.empty()) return name(*x) + " " + wrong;
    }
  }

private:
  static Dicom_ME const* next(Dicom_Msg const& msg, int* i) {
    Dicom_ME const* e = msg.GetElement(*i);
    while (e && e->GetTag().Element() == 0 && e->GetTag().Group() != 2)
      e = msg.GetElement(++*i);
    return e;
  }

  static std::string broken_in(Dicom_Msg const& msg, Dicom_UI const& syntax) {
    std::string first, native, again, native_again;
    bool const implicit = syntax == Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN;
    bool const regular = is_regular(msg, syntax);
    if (!Dump(msg, syntax, &first)) return regular ? "has no form" : "";
    std::unique_ptr<IOD_Msg> const back = Read(DataSetBytes::File(syntax.GetText(), first));
    if (!back) return "can't be read back";
    std::string const difference = regular || !implicit ? Difference(msg, *back, implicit) : "";
    if (!difference.empty()) return difference;
    Dicom_UI const& to_native = Dicom_UIDic::NATIVE_TRANSFER_SYNTAX;
    if (!Dump(*back, to_native, &native)) return "has no native form any more";
    std::unique_ptr<IOD_Msg> const by_way = Read(DataSetBytes::File(to_native.GetText(), native));
    if (!by_way || !Dump(*by_way, syntax, &again)) return "can't be read back from its native form";
    std::unique_ptr<IOD_Msg> const at_last = Read(DataSetBytes::File(syntax.GetText(), again));
    if (!at_last || !Dump(*at_last, to_native, &native_again)) return "can't be read back a second time";
    return native == native_again ? "" : "changes when it is written again";
  }

  static std::string broken_by_copying(Dicom_Msg& msg) {
    Dicom_Msg copies;
    for (int i = 0; i < msg.GetNElements();) {
      Dicom_ME const& e = *msg.GetElement(i);
      if (copies.Add(Dicom_ME(e)) == 0 || e.GetTag().Number() == 0) {
        ++i;
      } else {
        msg.Remove(e.GetTag());
      }
    }
    std::string difference = Difference(msg, copies, false), bytes;
    if (!difference.empty()) return "copied: " + difference;
    copies.SettleCharacterSet();
    if (!Dump(copies, Dicom_UIDic::NATIVE_TRANSFER_SYNTAX, &bytes)) return "a copy has no form";
    std::unique_ptr<IOD_Msg> const back = Read(DataSetBytes::File("1.2.840.10008.1.2.1", bytes));
    if (!back) return "a copy can't be read back";
    difference = Difference(copies, *back, false);
    return difference.empty() ? "" : "copied and read back: " + difference;
  }

  // Without what a syntax has no form for, and without VRs that contradict the dictionary.
  static bool is_regular(Dicom_Msg const& msg, Dicom_UI const& syntax) {
    if (syntax == Dicom_UIDic::NATIVE_TRANSFER_SYNTAX) return true;
    bool const implicit = syntax == Dicom_UIDic::IMPLICIT_VR_LITTLE_ENDIAN;
    for (int i = 0; i < msg.GetNElements(); ++i) {
      Dicom_ME const& e = *msg.GetElement(i);
      Dicom_Tag const tag = e.GetTag();
      Dicom_VR const known = Dicom_DataDictionary::VROf(tag.Group(), tag.Element());
      bool const sequence = e.GetVR() == Dicom_VR::SQ;
      if (e.IsEncapsulated() && !(implicit && tag.Number() == 0x7FE00010)) return false;
      if (implicit && e.GetVR() != known && !(known == Dicom_VR::UN && sequence) && !may_be(known, e.GetVR()))
        return false;
      auto const* items = sequence ? dynamic_cast<Dicom_SQ const*>(e.GetValue()) : nullptr;
      for (int item = 0; items && item < items->GetNValues(); ++item)
        if (!is_regular(*items->GetSequence()->Get(item), syntax)) return false;
    }
    return true;
  }

  // Whether a VR that the dictionary leaves open may be this one.
  static bool may_be(Dicom_VR open, Dicom_VR vr) {
    bool const word = vr == Dicom_VR::US || vr == Dicom_VR::SS, bytes = vr == Dicom_VR::OB || vr == Dicom_VR::OW;
    if (open == Dicom_VR::xs) return word;
    if (open == Dicom_VR::lt) return word || vr == Dicom_VR::OW;
    return (open == Dicom_VR::ox || open == Dicom_VR::px) && bytes;
  }

  static std::string difference(Dicom_ME const& x, Dicom_ME const& y, bool implicit) {
    Dicom_Type const &a = *x.GetValue(), &b = *y.GetValue();
    if (x.IsEncapsulated() != y.IsEncapsulated()) return "is encapsulated in one only";
    if (Dicom_StringType const* const text = a.AsString(); text && !Dicom_IsValidUtf8(text->View()))
      return "isn't UTF-8";
    auto const* first = dynamic_cast<Dicom_SQ const*>(&a);
    auto const* second = dynamic_cast<Dicom_SQ const*>(&b);
    if (first && second) {
      if (first->GetNValues() != second->GetNValues()) return "has other items";
      for (int i = 0; i < first->GetNValues(); ++i) {
        Dicom_Sequence const &p = *first->GetSequence(), &q = *second->GetSequence();
        std::string const wrong = Difference(*p.Get(i), *q.Get(i), implicit);
        if (!wrong.empty()) return wrong;
      }
      return {};
    }
    if (implicit && a.GetVR() != b.GetVR()) return {};
    if (a.GetVR() != b.GetVR() && y.GetVR() != Dicom_VR::UN) return "has another VR";
    std::string p, q;
    a.AppendBytes(p);
    b.AppendBytes(q);
    constexpr std::size_t padding = 8; // of an odd length, which may complete a number
    bool const same = p == q || (q.starts_with(p) && q.size() - p.size() <= padding &&
                                 (p.size() % 2 == 1 || !dynamic_cast<Dicom_OtherType const*>(&a)));
    return same || a.GetVR() != b.GetVR() ? "" : "has another value";
  }

  static std::string name(Dicom_ME const& e) {
    char text[16];
    std::snprintf(text, sizeof text, "(%04x,%04x)", e.GetTag().Group(), e.GetTag().Element());
    return text;
  }
};

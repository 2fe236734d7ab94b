// The tables against the formal syntax they stand for: both are walked side by side from the root messages. Needs the
// ASN.1 modules in the folder asn1/ of SNIFFER_TEST_DATA.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "H225Schema.h"
#include "H245Schema.h"
#include "Vectors.h"

namespace {

using asn1::Kind;
using asn1::Type;

bool isWordCharacter(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) || character == '-';
}

std::vector<std::string> tokensOf(std::string text) {
  text += '\n';
  // A comment ends with its line or at the next pair of hyphens.
  for (size_t begin = text.find("--"); begin != std::string::npos; begin = text.find("--", begin)) {
    const size_t end = std::min(text.find('\n', begin), text.find("--", begin + 2));
    text.erase(begin, (text[end] == '-' ? end + 2 : end) - begin);
  }
  constexpr const char* kBlanks = " \t\r\n";
  std::vector<std::string> tokens;
  for (size_t i = text.find_first_not_of(kBlanks); i != std::string::npos; i = text.find_first_not_of(kBlanks, i)) {
    size_t end = i + 1;
    if (isWordCharacter(text[i])) {
      while (isWordCharacter(text[end])) ++end;
    } else if (text[i] == '.') {
      while (text[end] == '.') ++end;
    } else if (text[i] == '"') {
      end = text.find('"', end) + 1;
    } else if (text.compare(i, 3, "::=") == 0) {
      end = i + 3;
    }
    tokens.push_back(text.substr(i, end - i));
    i = end;
  }
  return tokens;
}

struct Module {
  std::vector<std::string> tokens;
  std::map<std::string, size_t> definitions;  // of a type: where it begins
};

Module load(const std::string& path) {
  Module module{tokensOf(contentsOf(path)), {}};
  for (size_t i = 2; i < module.tokens.size(); ++i) {
    if (module.tokens[i] != "::=") continue;
    size_t name = i - 1;
    if (module.tokens[name] == "}") name -= 3;  // with a parameter
    module.definitions.emplace(module.tokens[name], i + 1);
  }
  return module;
}

class Comparison {
 public:
  explicit Comparison(const std::string& folder)
      : h235_(load(folder + "/h235.asn")), h245_(load(folder + "/h245.asn")), h225_(load(folder + "/h225.asn")) {}

  void run() {
    named(h225_, "H323-UserInformation", asn1::h225::H323_UserInformation, "");
    named(h245_, "MultimediaSystemControlMessage", asn1::h245::MultimediaSystemControlMessage, "");
  }
  size_t fields() const { return fields_; }

 private:
  // Reads the tokens of one type.
  struct Cursor {
    const Module& module;
    size_t at;
    std::string parameter;  // the name of the definition's parameter
    std::string path;

    const std::string& peek() const { return module.tokens.at(at); }
    std::string next() { return module.tokens.at(at++); }
    bool take(const char* token) {
      if (peek() != token) return false;
      ++at;
      return true;
    }
    // What stands in brackets here, joined by blanks.
    std::string brackets(const char* open, const char* close) {
      std::string text;
      if (!take(open)) return text;
      for (unsigned depth = 1; depth > 0; ++at) {
        if (peek() == open) ++depth;
        if (peek() == close && --depth == 0) continue;
        text += peek() + " ";
      }
      return text;
    }
    // "SEQUENCE SIZE (1..4) OF" and "SEQUENCE (SIZE (1..4)) OF" say the same.
    std::string constraints() {
      std::string text;
      if (take("SIZE")) text = "SIZE ";
      while (peek() == "(") text += brackets("(", ")");
      return text;
    }
  };

  const Module& moduleOf(const Module& from, const std::string& name) const {
    if (from.definitions.contains(name)) return from;
    return h235_.definitions.contains(name) ? h235_ : h245_;
  }

  void named(const Module& from, const std::string& name, const Type& type, const std::string& size) {
    const Module& module = moduleOf(from, name);
    if (!seen_.insert({module.definitions.at(name), &type}).second) return;
    Cursor cursor{module, module.definitions.at(name), "", name};
    const size_t before = cursor.at - 2;
    if (module.tokens[before] == "}") cursor.parameter = module.tokens[before - 1];
    compare(cursor, type, size);
  }

  // `size` is a constraint that stands outside.
  void compare(Cursor& cursor, const Type& type, const std::string& size = "") {
    static const std::map<std::string, Kind> kinds = {
        {"NULL", Kind::kNull},
        {"BOOLEAN", Kind::kBoolean},
        {"INTEGER", Kind::kInteger},
        {"ENUMERATED", Kind::kEnumerated},
        {"OBJECT", Kind::kObjectIdentifier},
        {"BIT", Kind::kBitString},
        {"OCTET", Kind::kOctetString},
        {"IA5String", Kind::kCharacterString},
        {"NumericString", Kind::kCharacterString},
        {"GeneralString", Kind::kCharacterString},
        {"BMPString", Kind::kBmpString},
        {"SEQUENCE", Kind::kSequence},
        {"SET", Kind::kSequence},
        {"CHOICE", Kind::kChoice},
    };
    const std::string word = cursor.next();
    const auto found = kinds.find(word);
    if (found == kinds.end()) return compareReference(cursor, type, word);
    Kind kind = found->second;
    if (word == "OBJECT" || word == "BIT" || word == "OCTET") cursor.next();
    const std::string constraints = cursor.constraints() + size;
    if (kind == Kind::kSequence && cursor.take("OF")) kind = Kind::kSequenceOf;
    ASSERT_EQ(type.kind, kind) << cursor.path << ": " << word;
    switch (kind) {
      case Kind::kNull:
      case Kind::kBoolean:
        return;
      case Kind::kSequence:
      case Kind::kChoice:
      case Kind::kEnumerated:
        return compareFields(cursor, type);
      case Kind::kInteger:
        EXPECT_EQ(type.extensible, constraints.find("...") != std::string::npos) << cursor.path;
        return expectRange(cursor, type, constraints, "MIN .. MAX");
      case Kind::kSequenceOf:
        expectRange(cursor, type, constraints, "0 .. MAX");
        return compare(cursor, *type.element);
      default:
        expectRange(cursor, type, constraints, "0 .. MAX");
        return expectAlphabet(cursor, type, word, constraints);
    }
  }

  void compareReference(Cursor& cursor, const Type& type, const std::string& word) {
    if (word == "TYPE-IDENTIFIER") cursor.at += 3;  // ".&Type"
    cursor.brackets("{", "}");
    const std::string outside = cursor.constraints();
    if (word == "TYPE-IDENTIFIER" || word == cursor.parameter) {
      EXPECT_EQ(type.kind, Kind::kOpenType) << cursor.path;
    } else {
      named(cursor.module, word, type, outside.starts_with("SIZE") ? outside : "");
    }
  }

  void compareFields(Cursor& cursor, const Type& type) {
    ASSERT_TRUE(cursor.take("{")) << cursor.path;
    unsigned index = 0;
    std::optional<unsigned> root;
    while (!cursor.take("}")) {
      if (cursor.take("...")) {
        root = index;
      } else {
        ASSERT_LT(index, type.fieldCount) << cursor.path;
        const asn1::Field& field = type.fields[index++];
        std::string name = cursor.next();
        std::ranges::replace(name, '-', '_');
        EXPECT_EQ(field.name, name) << cursor.path;
        ++fields_;
        if (type.kind == Kind::kEnumerated) {
          cursor.constraints();
        } else {
          Cursor inner = cursor;
          inner.path += "." + name;
          compare(inner, *field.type);
          cursor.at = inner.at;
          EXPECT_EQ(field.presence == asn1::kOptional, cursor.take("OPTIONAL")) << cursor.path << '.' << name;
        }
      }
      cursor.take(",");
    }
    EXPECT_EQ(index, type.fieldCount) << cursor.path;
    EXPECT_EQ(type.extensible, root.has_value()) << cursor.path;
    EXPECT_EQ(type.rootCount, root.value_or(index)) << cursor.path;
  }

  void expectAlphabet(const Cursor& cursor, const Type& type, const std::string& word, const std::string& constraints) {
    std::string alphabet = word == "NumericString" ? " 0123456789" : "";
    if (const size_t quote = constraints.find('"'); quote != std::string::npos) {
      alphabet = constraints.substr(quote + 1, constraints.rfind('"') - quote - 1);
    }
    std::ranges::sort(alphabet);
    EXPECT_EQ(type.alphabet != nullptr, !alphabet.empty()) << cursor.path;
    if (type.alphabet == nullptr) return;
    EXPECT_EQ(std::string(type.alphabet->characters, type.alphabet->size), alphabet) << cursor.path;
    EXPECT_EQ(type.unit, alphabet.size() <= 16 ? 4 : 8) << cursor.path;
  }

  // `constraint` holds "lower .. upper" or one number, for a size behind "SIZE (".
  void expectRange(const Cursor& cursor, const Type& type, std::string constraint, const std::string& unlimited) {
    if (const size_t size = constraint.find("SIZE"); size != std::string::npos) {
      constraint.erase(0, size);
    } else if (constraint.empty() || constraint.starts_with("FROM")) {
      constraint = unlimited;
    }
    std::istringstream words(constraint);
    std::string lower = "SIZE";
    while (lower == "SIZE" || lower == "(") words >> lower;
    std::string dots;
    std::string upper;
    words >> dots >> upper;
    if (dots != "..") upper = lower;
    EXPECT_EQ(type.range.lower, lower == "MIN" ? asn1::kMin : std::stoll(lower)) << cursor.path << ": " << constraint;
    EXPECT_EQ(type.range.upper, upper == "MAX" ? asn1::kMax : std::stoll(upper)) << cursor.path << ": " << constraint;
  }

  Module h235_;
  Module h245_;
  Module h225_;
  std::set<std::pair<size_t, const Type*>> seen_;
  size_t fields_ = 0;
};

TEST(Schema, IsThatOfTheRecommendations) {
  const char* const folder = std::getenv("SNIFFER_TEST_DATA");
  if (folder == nullptr) GTEST_SKIP() << "SNIFFER_TEST_DATA is not set: no ASN.1 modules to compare with";
  Comparison comparison(folder + std::string("/asn1"));
  comparison.run();
  std::cout << comparison.fields() << " components and alternatives compared\n";
  EXPECT_GT(comparison.fields(), 2000);
}

}  // namespace

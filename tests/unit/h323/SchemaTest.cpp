// The tables against the formal syntax they stand for: both are walked side by side from the root messages. Needs the
// ASN.1 modules in the folder asn1/ of SNIFFER_TEST_DATA.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "H225Schema.h"
#include "H245Schema.h"
#include "Vectors.h"

namespace {

using asn1::Kind;
using asn1::Type;

std::vector<std::string> tokensOf(const std::string& text) {
  std::vector<std::string> tokens;
  for (size_t i = 0; i < text.size();) {
    const auto isWord = [&](size_t at) {
      return at < text.size() && (std::isalnum(static_cast<unsigned char>(text[at])) || text[at] == '-');
    };
    if (text.compare(i, 2, "--") == 0) {
      // A comment ends with its line or at the next pair of hyphens.
      const size_t end = text.find('\n', i);
      const size_t hyphens = text.find("--", i + 2);
      i = hyphens < end ? hyphens + 2 : end;
    } else if (isWord(i)) {
      const size_t begin = i;
      while (isWord(i) && text.compare(i, 2, "--") != 0) ++i;
      tokens.push_back(text.substr(begin, i - begin));
    } else if (std::isspace(static_cast<unsigned char>(text[i]))) {
      ++i;
    } else {
      size_t length = text.compare(i, 3, "...") == 0 || text.compare(i, 3, "::=") == 0 ? 3 : 1;
      if (length == 1 && text.compare(i, 2, "..") == 0) length = 2;
      if (text[i] == '"') length = text.find('"', i + 1) - i + 1;
      tokens.push_back(text.substr(i, length));
      i += length;
    }
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
    std::string constraints() {
      std::string text;
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
    const std::string word = cursor.next();
    const auto expectKind = [&](Kind kind) { ASSERT_EQ(type.kind, kind) << cursor.path << ": " << word; };
    if (word == "SEQUENCE" || word == "SET") {
      const std::string entries = cursor.take("SIZE") ? cursor.brackets("(", ")") : cursor.constraints();
      if (!cursor.take("OF")) {
        expectKind(Kind::kSequence);
        return compareFields(cursor, type);
      }
      expectKind(Kind::kSequenceOf);
      expectRange(cursor, type, entries, "0 .. MAX");
      compare(cursor, *type.element);
    } else if (word == "CHOICE") {
      expectKind(Kind::kChoice);
      compareFields(cursor, type);
    } else if (word == "ENUMERATED") {
      expectKind(Kind::kEnumerated);
      compareFields(cursor, type);
    } else if (word == "NULL") {
      expectKind(Kind::kNull);
    } else if (word == "BOOLEAN") {
      expectKind(Kind::kBoolean);
    } else if (word == "INTEGER") {
      expectKind(Kind::kInteger);
      const std::string range = cursor.constraints();
      EXPECT_EQ(type.extensible, range.find("...") != std::string::npos) << cursor.path;
      expectRange(cursor, type, range, "MIN .. MAX");
    } else if (word == "OBJECT") {
      cursor.next();
      expectKind(Kind::kObjectIdentifier);
    } else if (word == "OCTET" || word == "BIT") {
      cursor.next();
      expectKind(word == "BIT" ? Kind::kBitString : Kind::kOctetString);
      expectRange(cursor, type, cursor.constraints() + size, "0 .. MAX");
    } else if (word.ends_with("String") && word != "ChallengeString") {
      expectKind(word == "BMPString" ? Kind::kBmpString : Kind::kCharacterString);
      compareString(cursor, type, word, cursor.constraints() + size);
    } else if (word == "TYPE-IDENTIFIER") {
      cursor.at += 3;
      cursor.constraints();
      expectKind(Kind::kOpenType);
    } else {
      cursor.brackets("{", "}");
      const std::string outside = cursor.constraints();
      if (word == cursor.parameter) return expectKind(Kind::kOpenType);
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

  void compareString(Cursor& cursor, const Type& type, const std::string& word, const std::string& constraints) {
    expectRange(cursor, type, constraints, "0 .. MAX");
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
    const auto numberAt = [&](size_t at) {
      if (constraint.compare(at, 3, "MIN") == 0) return asn1::kMin;
      if (constraint.compare(at, 3, "MAX") == 0) return asn1::kMax;
      return static_cast<int64_t>(std::stoll(constraint.substr(at)));
    };
    const size_t dots = constraint.find(" .. ");
    const size_t lower = constraint.find_first_of("-0123456789M");
    EXPECT_EQ(type.range.lower, numberAt(lower)) << cursor.path << ": " << constraint;
    EXPECT_EQ(type.range.upper, numberAt(dots == std::string::npos ? lower : dots + 4))
        << cursor.path << ": " << constraint;
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

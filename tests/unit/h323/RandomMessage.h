#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "Schema.h"

// A value to encode, made at random; the counterpart of asn1::Value.
struct RandomValue {
  const asn1::Type* type = nullptr;
  int64_t number = 0;           // as asn1::Value::number
  std::vector<uint8_t> octets;  // strings: the characters, octets, or bits from the top of each octet
  size_t length = 0;            // as asn1::Value::length
  unsigned index = 0;           // in a SEQUENCE: which component it is
  std::vector<RandomValue> children;
};

// Makes values of a type at random, those first that it has not made yet, and notes what it has made.
class RandomValues {
 public:
  using Entry = std::pair<const asn1::Type*, unsigned>;  // a field of a type

  explicit RandomValues(unsigned seed) : random_(seed) {}
  RandomValue make(const asn1::Type& type, unsigned depth = 0);
  const std::set<Entry>& made() const { return made_; }

 private:
  size_t upTo(size_t most) { return std::uniform_int_distribution<size_t>(0, most)(random_); }
  bool leadsToNew(const asn1::Type& type, unsigned field);
  void makeFields(RandomValue& value, unsigned depth);
  unsigned pickAlternative(const asn1::Type& type, unsigned depth);
  void makeString(RandomValue& value, unsigned depth);

  std::mt19937 random_;
  std::set<Entry> made_;
  std::set<const asn1::Type*> complete_;  // everything below them is made
  std::map<const asn1::Type*, std::set<Entry>> reachable_;
};

// The aligned variant of the basic packed encoding rules, for tests: an encoder of its own, bit by bit, straight from
// X.691. With `future` it speaks a later version of the standard: it appends extension additions nobody knows, and
// leaves more in an addition than is known.
std::vector<uint8_t> encode(const RandomValue& value, bool future);

// All fields that `root` reaches.
std::set<RandomValues::Entry> fieldsOf(const asn1::Type& root);

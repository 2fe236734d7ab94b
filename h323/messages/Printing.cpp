#include "h323/messages/Printing.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace asn1 {
namespace {

constexpr std::size_t kOctetsPerLine = 16;
constexpr std::size_t kCharactersPerLine = 8;
constexpr std::uint32_t kShortBitString = 64;

bool isPrintable(unsigned character) {
  return character >= ' ' && character <= '~';
}

char printable(unsigned character) {
  return isPrintable(character) ? static_cast<char>(character) : '.';
}

void appendHex(std::string& line, unsigned number, unsigned digits) {
  while (digits-- > 0) line += "0123456789abcdef"[number >> digits * 4 & 15];
}

/// Writes `head`, an opening brace, the output of `lines`, and the closing brace.
template <class Lines>
void printBlock(std::ostream& stream, std::string_view head, unsigned indent, Lines lines) {
  stream << head << "{\n";
  lines();
  stream << std::string(indent, ' ') << '}';
}

void printFields(std::ostream& stream, const Value& sequence, unsigned indent) {
  printBlock(stream, "", indent, [&] {
    for (const Value* field = sequence.child; field != nullptr; field = field->next) {
      stream << std::string(indent + 2, ' ') << sequence.type->fields[field->index].name << " = ";
      print(stream, *field, indent + 2);
      stream << '\n';
    }
  });
}

void printEntries(std::ostream& stream, const Value& list, unsigned indent) {
  printBlock(stream, std::to_string(list.length) + " entries ", indent, [&] {
    std::size_t index = 0;
    for (const Value* entry = list.child; entry != nullptr; entry = entry->next) {
      stream << std::string(indent + 2, ' ') << '[' << index++ << "]=";
      print(stream, *entry, indent + 2);
      stream << '\n';
    }
  });
}

void printChoice(std::ostream& stream, const Value& choice, unsigned indent) {
  stream << nameOf(choice) << ' ';
  print(stream, *choice.child, indent);
}

void printOctetString(std::ostream& stream, const Value& value, unsigned indent) {
  printBlock(stream, " " + std::to_string(value.length) + " octets ", indent,
             [&] { printOctets(stream, PBYTEArray(value.octets, value.length), indent + 2); });
}

void printBmpString(std::ostream& stream, const Value& value, unsigned indent) {
  printBlock(stream, " " + std::to_string(value.length) + " characters ", indent, [&] {
    for (std::uint32_t i = 0; i < value.length; i += kCharactersPerLine) {
      const std::uint32_t end = std::min<std::uint32_t>(value.length, i + kCharactersPerLine);
      std::string line(indent + 2, ' ');
      std::string text;
      for (std::uint32_t j = i; j < end; ++j) {
        const unsigned character = value.octets[2 * j] << 8U | value.octets[2 * j + 1];
        appendHex(line, character, 4);
        line += ' ';
        text += printable(character);
      }
      line.resize(indent + 2 + kCharactersPerLine * 5 + 2, ' ');
      stream << line << text << '\n';
    }
  });
}

void printCharacterString(std::ostream& stream, const Value& value) {
  std::string text = "\"";
  for (std::uint32_t i = 0; i < value.length; ++i) {
    const unsigned char character = value.octets[i];
    constexpr std::string_view kEscaped = "\"\\\a\b\f\n\r\t\v";
    constexpr std::string_view kLetters = "\"\\abfnrtv";
    if (const std::size_t escape = kEscaped.find(static_cast<char>(character)); escape != std::string_view::npos) {
      text += '\\';
      text += kLetters[escape];
    } else if (isPrintable(character)) {
      text += static_cast<char>(character);
    } else {
      // An octal escape ends after three digits, even before another digit.
      text += '\\';
      for (const int shift : {6, 3, 0}) text += static_cast<char>('0' + (character >> shift & 7));
    }
  }
  stream << text << '"';
}

void printBitString(std::ostream& stream, const Value& value, unsigned indent) {
  if (value.length > kShortBitString) {
    printBlock(stream, " " + std::to_string(value.length) + " bits ", indent,
               [&] { printOctets(stream, PBYTEArray(value.octets, (value.length + 7) / 8), indent + 2); });
    return;
  }
  for (std::uint32_t i = 0; i < value.length; ++i) stream << (value.octets[i / 8] >> (7 - i % 8) & 1);
}

/// X.690, 8.19: a number has seven bits in each octet, and bit 8 of its last octet is clear. The first number encodes
/// the first two components.
void printObjectIdentifier(std::ostream& stream, const Value& value) {
  std::uint64_t number = 0;
  bool first = true;
  for (std::uint32_t i = 0; i < value.length; ++i) {
    number = number << 7 | (value.octets[i] & 0x7F);
    if ((value.octets[i] & 0x80) != 0) continue;
    if (first) {
      const std::uint64_t root = std::min<std::uint64_t>(number / 40, 2);
      stream << root << '.' << number - root * 40;
    } else {
      stream << '.' << number;
    }
    first = false;
    number = 0;
  }
}

void printEnumerated(std::ostream& stream, const Value& value) {
  if (value.number < value.type->fieldCount) {
    stream << value.type->fields[value.number].name;
  } else {
    stream << '<' << value.number << '>';
  }
}

}  // namespace

std::string nameOf(const Value& choice) {
  if (choice.length < choice.type->fieldCount) return choice.type->fields[choice.length].name;
  return "<" + std::to_string(choice.length) + ">";
}

void print(std::ostream& stream, const Value& value, unsigned indent) {
  if (value.type == nullptr) {
    stream << "<<absent>>";
    return;
  }
  switch (value.type->kind) {
    case Kind::kNull:
      stream << "<<null>>";
      break;
    case Kind::kBoolean:
      stream << (value.number != 0 ? "true" : "false");
      break;
    case Kind::kInteger:
      stream << value.number;
      break;
    case Kind::kEnumerated:
      printEnumerated(stream, value);
      break;
    case Kind::kObjectIdentifier:
      printObjectIdentifier(stream, value);
      break;
    case Kind::kBitString:
      printBitString(stream, value, indent);
      break;
    case Kind::kOctetString:
    case Kind::kOpenType:
      printOctetString(stream, value, indent);
      break;
    case Kind::kCharacterString:
      printCharacterString(stream, value);
      break;
    case Kind::kBmpString:
      printBmpString(stream, value, indent);
      break;
    case Kind::kSequence:
      printFields(stream, value, indent);
      break;
    case Kind::kSequenceOf:
      printEntries(stream, value, indent);
      break;
    case Kind::kChoice:
      printChoice(stream, value, indent);
      break;
  }
}

void printOctets(std::ostream& stream, const PBYTEArray& octets, unsigned indent) {
  if (octets.IsEmpty()) stream << '\n';
  for (std::size_t i = 0; i < octets.GetSize(); i += kOctetsPerLine) {
    const std::size_t end = std::min(octets.GetSize(), i + kOctetsPerLine);
    std::string line(indent, ' ');
    std::string text;
    for (std::size_t j = i; j < end; ++j) {
      if (j - i == kOctetsPerLine / 2) line += ' ';
      appendHex(line, octets[j], 2);
      line += ' ';
      text += printable(octets[j]);
    }
    line.resize(indent + kOctetsPerLine * 3 + 3, ' ');
    stream << line << text << '\n';
  }
}

}  // namespace asn1

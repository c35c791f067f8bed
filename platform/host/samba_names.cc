#include "platform/host/samba_names.h"

#include <algorithm>
#include <array>

#include "base/text.h"

namespace platform::host {
namespace {

// Capital letters from first to last in steps; each small letter stands `distance` behind its capital.
struct Capitals {
  int first;
  int last;
  int step;
  int distance;
};

// All that the file server folds. Today's Unicode knows more: keep it so, or two shares become one. A capital
// and its small letter take the same number of bytes, one to three.
constexpr auto kCapitals = std::to_array<Capitals>(
    {{0x41, 0x5A, 1, 32},       {0xC0, 0xD6, 1, 32},     {0xD8, 0xDE, 1, 32},       {0x100, 0x12E, 2, 1},
     {0x132, 0x136, 2, 1},      {0x139, 0x147, 2, 1},    {0x14A, 0x176, 2, 1},      {0x178, 0x178, 1, -121},
     {0x179, 0x17D, 2, 1},      {0x181, 0x181, 1, 210},  {0x182, 0x184, 2, 1},      {0x186, 0x186, 1, 206},
     {0x187, 0x187, 1, 1},      {0x189, 0x18A, 1, 205},  {0x18B, 0x18B, 1, 1},      {0x18E, 0x18E, 1, 79},
     {0x18F, 0x18F, 1, 202},    {0x190, 0x190, 1, 203},  {0x191, 0x191, 1, 1},      {0x193, 0x193, 1, 205},
     {0x194, 0x194, 1, 207},    {0x196, 0x196, 1, 211},  {0x197, 0x197, 1, 209},    {0x198, 0x198, 1, 1},
     {0x19C, 0x19C, 1, 211},    {0x19D, 0x19D, 1, 213},  {0x19F, 0x19F, 1, 214},    {0x1A0, 0x1A4, 2, 1},
     {0x1A7, 0x1A7, 1, 1},      {0x1A9, 0x1A9, 1, 218},  {0x1AC, 0x1AC, 1, 1},      {0x1AE, 0x1AE, 1, 218},
     {0x1AF, 0x1AF, 1, 1},      {0x1B1, 0x1B2, 1, 217},  {0x1B3, 0x1B5, 2, 1},      {0x1B7, 0x1B7, 1, 219},
     {0x1B8, 0x1B8, 1, 1},      {0x1BC, 0x1BC, 1, 1},    {0x1C4, 0x1C4, 1, 2},      {0x1C7, 0x1C7, 1, 2},
     {0x1CA, 0x1CA, 1, 2},      {0x1CD, 0x1DB, 2, 1},    {0x1DE, 0x1EE, 2, 1},      {0x1F1, 0x1F1, 1, 2},
     {0x1F4, 0x1F4, 1, 1},      {0x1FA, 0x216, 2, 1},    {0x386, 0x386, 1, 38},     {0x388, 0x38A, 1, 37},
     {0x38C, 0x38C, 1, 64},     {0x38E, 0x38F, 1, 63},   {0x391, 0x3A1, 1, 32},     {0x3A3, 0x3AB, 1, 32},
     {0x3E2, 0x3EE, 2, 1},      {0x401, 0x40C, 1, 80},   {0x40E, 0x40F, 1, 80},     {0x410, 0x42F, 1, 32},
     {0x460, 0x480, 2, 1},      {0x490, 0x4BE, 2, 1},    {0x4C1, 0x4C3, 2, 1},      {0x4C7, 0x4C7, 1, 1},
     {0x4CB, 0x4CB, 1, 1},      {0x4D0, 0x4EA, 2, 1},    {0x4EE, 0x4F4, 2, 1},      {0x4F8, 0x4F8, 1, 1},
     {0x531, 0x556, 1, 48},     {0x1E00, 0x1E94, 2, 1},  {0x1EA0, 0x1EF8, 2, 1},    {0x1F08, 0x1F0F, 1, -8},
     {0x1F18, 0x1F1D, 1, -8},   {0x1F28, 0x1F2F, 1, -8}, {0x1F38, 0x1F3F, 1, -8},   {0x1F48, 0x1F4D, 1, -8},
     {0x1F59, 0x1F5F, 2, -8},   {0x1F68, 0x1F6F, 1, -8}, {0x1FB8, 0x1FB9, 1, -8},   {0x1FBA, 0x1FBB, 1, -74},
     {0x1FC8, 0x1FCB, 1, -86},  {0x1FD8, 0x1FD9, 1, -8}, {0x1FDA, 0x1FDB, 1, -100}, {0x1FE8, 0x1FE9, 1, -8},
     {0x1FEA, 0x1FEB, 1, -112}, {0x1FEC, 0x1FEC, 1, -7}, {0x1FF8, 0x1FF9, 1, -128}, {0x1FFA, 0x1FFB, 1, -126},
     {0x2160, 0x216F, 1, 16},   {0x24B6, 0x24CF, 1, 26}, {0xFF21, 0xFF3A, 1, 32}});

int ToLower(int character) {
  const auto* row = std::find_if(kCapitals.begin(), kCapitals.end(), [character](const Capitals& capitals) {
    return character <= capitals.last;
  });
  const bool is_capital =
      row != kCapitals.end() && character >= row->first && (character - row->first) % row->step == 0;
  return is_capital ? character + row->distance : character;
}

// Replaces a character of one to three bytes that begins at `begin` by its small letter. Does nothing where
// none begins.
void LowerAt(std::string& name, std::size_t begin) {
  struct Form {
    std::size_t length;
    int mask;
    int mark;
    int least;  // a smaller character in so many bytes is no UTF-8
  };
  static constexpr std::array<Form, 3> kForms = {
      {{1, 0x80, 0, 0}, {2, 0xE0, 0xC0, 0x80}, {3, 0xF0, 0xE0, 0x800}}};
  const auto byte = [&name, begin](std::size_t at) {
    return int{static_cast<unsigned char>(name[begin + at])};
  };
  const auto* form = std::find_if(kForms.begin(), kForms.end(),
                                  [&](const Form& known) { return (byte(0) & known.mask) == known.mark; });
  if (form == kForms.end() || name.size() - begin < form->length) return;
  int character = byte(0) & ~form->mask;
  for (std::size_t at = 1; at < form->length; ++at) {
    if ((byte(at) & 0xC0) != 0x80) return;
    character = character * 0x40 + (byte(at) & 0x3F);
  }
  int lower = ToLower(character);
  if (character < form->least || lower == character) return;
  for (std::size_t at = form->length - 1; at > 0; --at, lower /= 0x40) {
    name[begin + at] = static_cast<char>(0x80 | (lower % 0x40));
  }
  name[begin] = static_cast<char>(form->mark | lower);
}

}  // namespace

std::string FoldShareName(std::string_view name) {
  std::string folded(name);
  for (std::size_t at = 0; at < folded.size(); ++at) LowerAt(folded, at);
  return folded;
}

std::string FoldSambaWord(std::string_view word) {
  std::string folded = FoldShareName(word);
  std::erase_if(folded,
                [](char character) { return base::kBlanks.find(character) != std::string_view::npos; });
  return folded;
}

bool IsSambaYes(std::string_view value) {
  const std::string folded = FoldSambaWord(value);
  return folded == "yes" || folded == "true" || folded == "on" || folded == "1";
}

}  // namespace platform::host

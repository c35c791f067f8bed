#include "ctl/sha256.h"

#include <array>
#include <new>

namespace ctl {

Sha256::Sha256()
    : context_(EVP_MD_CTX_new()),
      is_well_(context_ != nullptr && EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) == 1) {}

void Sha256::Add(const void* bytes, std::size_t length) {
  is_well_ = is_well_ && EVP_DigestUpdate(context_.get(), bytes, length) == 1;
}

std::string Sha256::Finish() {
  constexpr const char* kDigits = "0123456789abcdef";
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  // A digest that is made up could be that of other bytes. This happens without memory only.
  if (!is_well_ || EVP_DigestFinal_ex(context_.get(), digest.data(), &length) != 1) throw std::bad_alloc();
  std::string text;
  for (unsigned i = 0; i < length; ++i) text += {kDigits[digest.at(i) >> 4U], kDigits[digest.at(i) & 15U]};
  return text;
}

}  // namespace ctl

// What tells whether bytes are the ones that were saved.
#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <memory>
#include <string>

namespace ctl {

class Sha256 {
 public:
  Sha256();
  void Add(const void* bytes, std::size_t length);
  // Of everything that was added, as 64 digits. To be called once, at the end.
  [[nodiscard]] std::string Finish();

 private:
  struct Free {
    void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_MD_CTX, Free> context_;
  bool is_well_;
};

}  // namespace ctl

// A folder for what must not stay: it is gone when this process is, however that ends.
#pragma once

#include <string>

namespace ctl {

// A process of its own removes the folder, as soon as this one removes, ends, is interrupted, killed or
// crashes. There is one such folder at a time: an interruption waits until it is removed, and then ends this
// process.
class ShortLivedFolder {
 public:
  ShortLivedFolder() = default;
  ShortLivedFolder(const ShortLivedFolder&) = delete;
  ShortLivedFolder& operator=(const ShortLivedFolder&) = delete;
  // Removes the folder, unless Keep() was called; of a folder that was there before, what is in it.
  ~ShortLivedFolder() { (void)Remove(); }

  // Makes a new folder in `above` that only this process's user can enter; its name is `prefix` and a number.
  // Removes others of such names before, which a crash of the machine has left: nobody else may be making one
  // there. Returns 0, or -1 with the reason in `error`.
  [[nodiscard]] int MakeIn(const std::string& above, const std::string& prefix, std::string& error);
  // Takes the folder `path`, which is made if it is missing and has to be empty. Results are the same.
  [[nodiscard]] int Take(const std::string& path, std::string& error);

  // Of several threads none may be at work in the folder.
  void Keep() { (void)End(true); }
  // Returns whether nothing of it is left; also where there is none.
  [[nodiscard]] bool Remove() { return End(false); }

  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  [[nodiscard]] int Guard(bool with_folder, std::string& error);
  [[nodiscard]] bool End(bool is_kept);

  std::string path_;
};

}  // namespace ctl

// Walking a folder tree without ever leaving it.
//
// Every step down goes from an open folder to an entry of it and refuses links; every step up is checked to
// arrive where the walk came from. So nobody who changes the tree meanwhile can lead the walk elsewhere. A
// walk holds two descriptors whatever the depth, and paths may be longer than the system takes in one piece.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "base/interface.h"
#include "file-op/folder.h"
#include "file-op/folder_reader.h"

namespace file_op {

// A place in a tree. Operations return 0, or -1 with errno set.
class FolderCursor {
 public:
  // Opens the top folder, which must not be a link itself.
  [[nodiscard]] int OpenTop(const FilePlace& top);
  void StartAt(Folder top);
  [[nodiscard]] int Enter(const std::string& name);
  // Back to the folder above; ESTALE when the folder is no longer in it.
  [[nodiscard]] int Leave();

  [[nodiscard]] const Folder& here() const { return here_; }
  [[nodiscard]] int fd() const { return here_.fd(); }
  [[nodiscard]] const std::string& path() const { return here_.path(); }
  [[nodiscard]] bool is_at_top() const { return above_.empty(); }

 private:
  struct Above {
    dev_t device;
    ino_t inode;
    std::size_t path_length;
  };
  Folder here_;
  std::vector<Above> above_;
};

// What is done with the entries of a tree. Every operation returns 0, or a negative value that ends the walk
// and becomes its result.
class TraverseHandler : public base::Interface {
 public:
  // An entry of the folder at which the walk stands. The entries of a folder come in directory order; its
  // folders are walked after that.
  [[nodiscard]] virtual int OnEntry(const FolderCursor& folder, const Entry& entry) = 0;
  // The walk has entered the folder `name`.
  [[nodiscard]] virtual int OnEnter(const std::string& name);
  // The walk is done with everything in `folder`, and still stands there.
  [[nodiscard]] virtual int OnFinish(const FolderCursor& folder);
  // The walk is back in `folder` and done with its folder `name`.
  [[nodiscard]] virtual int OnLeave(const FolderCursor& folder, const std::string& name);
  // The walk cannot read `folder`, or get into or out of one from there; errno tells why. Must return a
  // negative value.
  [[nodiscard]] virtual int OnWalkFailure(const FolderCursor& folder);
};

// Walks everything under the folder at which the cursor stands. Returns 0, or the negative value of the
// handler.
[[nodiscard]] int WalkTree(FolderCursor& cursor, TraverseHandler& handler);

}  // namespace file_op

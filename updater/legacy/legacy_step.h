// One step of the legacy chain.
//
// It brings the databases that it gets and that are below 2577 nearer to the layout of 2577, by the parts
// that layout.h gives to it. A database at 2577 or above is left alone, and nothing is done twice.
//
// All databases are looked at as a whole before anything is changed. What is not understood is refused, as is
// a database below 2577 beside one above it, or beside a user database that is not there. Then no file has
// changed, but for a hot journal that was rolled back. A change that fails is rolled back in all databases:
// it is one transaction.
#pragma once

#include <map>
#include <string>

#include "package/layout.h"
#include "updater/legacy/judgement.h"
#include "updater/legacy/layout.h"

namespace updater::legacy {

class LegacyStep {
 public:
  explicit LegacyStep(const StepRow& row) : row_(row) {}

  [[nodiscard]] int number() const { return row_.number; }

  // Returns 0, or -1 after logging "V%d: database %s cannot be brought to 2577: %s\n" or the statement that
  // failed. A client database that is not there is not made.
  [[nodiscard]] int Run(const package::PackagePaths& copies) const;

 private:
  using Judgements = std::map<Database, Judgement>;  // of the databases that are there

  [[nodiscard]] bool Accept(const package::PackagePaths& copies, const Judgements& judgements) const;
  [[nodiscard]] bool Change(const package::PackagePaths& copies, const Judgements& judgements) const;
  [[nodiscard]] bool ChangeAttached(sqlite3* db, const package::PackagePaths& copies,
                                    const Judgements& judgements) const;
  // Logs the line above; returns false.
  [[nodiscard]] bool Refuse(const std::string& path, const std::string& reason) const;

  StepRow row_;
};

}  // namespace updater::legacy

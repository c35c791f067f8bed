// The databases of tests/data for tests that are no C++ programs. The working folder is tests/data.
//
//   package-tool <package folder> <version> <uuid> <sync folder> <extras>   writes them
//   package-tool <package folder>                                           prints what is in them
#include <iostream>

#include "tests/support/fixtures.h"

int main(int argc, char** argv) {
  package::PackagePaths package = tests::PackageIn(argv[1]);
  if (argc == 6) {
    package.sync_folder = argv[4];
    tests::WriteFixture(std::stoi(argv[2]), argv[3], argv[5], package);
  } else {
    for (const auto& [name, text] : tests::DumpPackage(package)) std::cout << name << '\n' << text;
  }
}

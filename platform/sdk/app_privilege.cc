#include "platform/sdk/app_privilege.h"

#include "logger/component_log.h"

namespace platform::sdk {
namespace {

constexpr logger::Component kComponent = {"sdk_cpp_debug", "sdk-impl-6-0"};
constexpr const char* kApplicationId = "PLAT.HDS.STFD.Instance";

}  // namespace

void AllowApplication(AppPrivilege& app_privilege, const std::vector<std::string>& users) {
  for (const std::string& user : app_privilege.PLIBAppPrivUserAdd(users, kApplicationId)) {
    logger::ComponentError(kComponent, "Fail to allow user '%s'\n", user);
  }
}

}  // namespace platform::sdk

#include <orla/platform/keychain.h>

namespace orla {

std::string_view keychainStatusMessage(KeychainStatus status) {
  switch (status) {
    case KeychainStatus::success: return "The keychain answered.";
    case KeychainStatus::itemNotFound: return "The keychain holds no such item.";
    case KeychainStatus::duplicateItem: return "The keychain already holds that item.";
    case KeychainStatus::interactionNotAllowed: return "The keychain is locked.";
    case KeychainStatus::authorizationDenied: return "Access to the keychain was denied.";
    case KeychainStatus::unavailable:
      return "The keychain is not available on this desktop in this build of Orla.";
  }
  return "The keychain gave an unknown answer.";
}

}  // namespace orla

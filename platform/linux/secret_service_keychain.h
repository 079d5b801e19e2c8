// The keychain on Linux: the desktop's Secret Service (gnome-keyring,
// KWallet, KeePassXC) through libsecret, which is loaded on first use so that
// a host that never touches a secret never pays for it.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <orla/platform/keychain.h>

namespace orla::linux_desktop {

struct SecretServiceOptions {
  // Whether a locked collection may be unlocked through the service's own
  // prompt. Without a display no prompt can appear, and the answer is then
  // `interactionNotAllowed` at once.
  bool allowPrompt = true;
  // The collection new items go to, by alias or by object path; the one whose lock state
  // decides whether the keychain is open. "default" is the login keyring.
  std::string collection = "default";
  // Every call to the service ends by this deadline; a prompt by its own,
  // longer one, since a person answers it.
  std::chrono::milliseconds callDeadline{5000};
  std::chrono::milliseconds promptDeadline{60000};
};

std::unique_ptr<Keychain> makeSecretServiceKeychain(SecretServiceOptions options = {});

}  // namespace orla::linux_desktop

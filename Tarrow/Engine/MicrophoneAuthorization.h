#pragma once

#include <functional>

namespace kelvo {

enum class MicrophoneAuthorizationStatus { authorized, notDetermined, denied };

/// Whether the bridge may listen. Linux has no such permission, so the running system always
/// answers "authorized"; the other paths exist for platforms that ask, and for tests.
class MicrophoneAuthorization {
public:
    virtual ~MicrophoneAuthorization() = default;
    virtual MicrophoneAuthorizationStatus status() const = 0;
    /// Asks the user; the answer arrives later on the main thread.
    virtual void requestAccess(std::function<void(bool granted)> answer) = 0;
};

class AlwaysAuthorizedMicrophone final : public MicrophoneAuthorization {
public:
    MicrophoneAuthorizationStatus status() const override {
        return MicrophoneAuthorizationStatus::authorized;
    }
    void requestAccess(std::function<void(bool)> answer) override { answer(true); }
};

} // namespace kelvo

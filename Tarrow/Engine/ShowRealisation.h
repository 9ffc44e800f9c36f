#pragma once

#include "Cloud/Cancellation.h"
#include "Cloud/SlottedWork.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace kelvo {

class EngineHost;
class TickSlots;

/// Realises a new active show in the engine without disturbing the tick of the lights: the
/// outside data is turned into text on a worker, and each piece that must use the engine
/// (building the subset, serialising it, the switch) waits for its own slot right after a tick.
/// The running show keeps stepping until the switch, which loads the new show with its fixture
/// options and control state in one slot: the lights never see half of it. A new engine's session
/// is not stepped before the switch, so it takes the show and the fixture options ahead, in
/// slots of their own.
class ShowRealisation {
public:
    /// Without `tickSlots` the pieces run at once; without `context` the worker's part too.
    ShowRealisation(EngineHost& engine, TickSlots* tickSlots, QObject* context);
    ShowRealisation(const ShowRealisation&) = delete;
    ShowRealisation& operator=(const ShowRealisation&) = delete;

    /// The subset as UTF-8 JSON for the cache once the show lights, else nullopt (the engine
    /// has no session, or a newer realisation took over). `atSwitch` runs in the switch's
    /// slot, told whether the show switched, so what the owner adds to the engine arrives with
    /// the show. Throws FlowCancelled when `cancel` fires.
    QCoro::Task<std::optional<std::string>> realise(nlohmann::json activeShow,
                                                    nlohmann::json controlState,
                                                    CancellationToken cancel,
                                                    std::function<void(bool)> atSwitch = {});
    /// A realisation is on its way to the switch.
    bool isRealising() const { return current_ != nullptr; }

private:
    EngineHost& engine_;
    SlottedWork work_;
    std::shared_ptr<CancellationSource> current_; // the newest realisation's
};

} // namespace kelvo

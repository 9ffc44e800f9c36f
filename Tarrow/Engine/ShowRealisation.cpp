#include "Engine/ShowRealisation.h"

#include "Engine/EngineHost.h"

namespace kelvo {

ShowRealisation::ShowRealisation(EngineHost& engine, TickSlots* tickSlots, QObject* context)
    : engine_(engine), work_(tickSlots, context) {}

// Every task is made in its own statement before it is awaited (GCC 12, see SlottedWork).

QCoro::Task<std::optional<std::string>>
ShowRealisation::realise(nlohmann::json activeShow, nlohmann::json controlState,
                         CancellationToken cancel, std::function<void(bool)> atSwitch) {
    if (current_)
        current_->cancel(); // only the newest show is worth lighting
    const auto mine = std::make_shared<CancellationSource>();
    current_ = mine;
    const CancellationToken superseded(mine);
    const auto forward = cancel.onCancel([mine] { mine->cancel(); });
    const auto finished = [this, &mine] {
        if (current_ == mine)
            current_.reset();
    };
    try {
        using Texts = EngineHost::ShowTexts;
        QCoro::Task<Texts> making = work_.offMainThread<Texts>(
            [show = std::move(activeShow), control = std::move(controlState)] {
                return EngineHost::showTexts(show, control);
            });
        const Texts texts = co_await std::move(making);
        superseded.throwIfCancelled();

        QCoro::Task<> buildSlot = work_.slot(superseded);
        co_await std::move(buildSlot);
        const EngineHost::StagedShow staged = engine_.stageShow(texts);

        QCoro::Task<> textSlot = work_.slot(superseded);
        co_await std::move(textSlot);
        std::optional<std::string> subset = engine_.stagedShowText(staged);

        using Positions = std::map<std::string, std::pair<double, double>>;
        QCoro::Task<Positions> reading = work_.offMainThread<Positions>([subset] {
            return subset ? EngineHost::fixturePositionsFromSubset(*subset) : Positions{};
        });
        Positions positions = co_await std::move(reading);
        superseded.throwIfCancelled();

        while (engine_.canLoadStagedShowAhead(staged)) {
            QCoro::Task<> aheadSlot = work_.slot(superseded);
            co_await std::move(aheadSlot);
            engine_.loadStagedShowAhead(staged, texts);
        }

        QCoro::Task<> switchSlot = work_.slot(superseded);
        co_await std::move(switchSlot);
        const bool switched = engine_.switchToStagedShow(staged, texts, std::move(positions));
        finished();
        if (atSwitch)
            atSwitch(switched);
        co_return switched ? subset : std::nullopt;
    } catch (const FlowCancelled&) {
        finished();
        cancel.throwIfCancelled();
        co_return std::nullopt; // a newer realisation took over
    }
}

} // namespace kelvo

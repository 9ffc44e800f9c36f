#include "Audio/PulseAudio/PulseAudioDeviceLayer.h"

#include <cstring>

namespace kelvo {

namespace {

std::optional<std::string> nonEmpty(const char* text) {
    if (!text || !*text)
        return std::nullopt;
    return std::string(text);
}

struct Listing {
    const PulseAudioConnection* connection;
    std::vector<AudioDeviceRecord> records;
    bool failed = false;
};

// Sources and sinks carry the same fields under their own info types.
template <class Info>
bool addListed(Listing* listing, const Info* info, int eol,
               std::string (*idOf)(const std::string&)) {
    if (eol != 0 || !info) {
        listing->failed = listing->failed || eol < 0;
        listing->connection->signal();
        return false;
    }
    AudioDeviceRecord record;
    record.id = idOf(info->name);
    record.uid = nonEmpty(info->name);
    record.name = nonEmpty(info->description);
    record.transport = PulseAudioDeviceLayer::transportFromProperties(
        pa_proplist_gets(info->proplist, PA_PROP_DEVICE_BUS),
        pa_proplist_gets(info->proplist, PA_PROP_DEVICE_FORM_FACTOR));
    record.inputChannels = 0;
    listing->records.push_back(std::move(record));
    return true;
}

void sourceListed(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* listing = static_cast<Listing*>(userdata);
    if (!addListed(listing, info, eol, &PulseAudioDeviceLayer::sourceID))
        return;
    // A sink's monitor carries playback back in; it is not an input of the room.
    if (info->monitor_of_sink == PA_INVALID_INDEX)
        listing->records.back().inputChannels = static_cast<int>(info->sample_spec.channels);
}

void sinkListed(pa_context*, const pa_sink_info* info, int eol, void* userdata) {
    addListed(static_cast<Listing*>(userdata), info, eol, &PulseAudioDeviceLayer::sinkID);
}

struct Defaults {
    const PulseAudioConnection* connection;
    std::optional<std::string> source;
    std::optional<std::string> sink;
};

void serverInfo(pa_context*, const pa_server_info* info, void* userdata) {
    auto* defaults = static_cast<Defaults*>(userdata);
    if (info) {
        defaults->source = nonEmpty(info->default_source_name);
        defaults->sink = nonEmpty(info->default_sink_name);
    }
    defaults->connection->signal();
}

struct RateQuery {
    const PulseAudioConnection* connection;
    std::optional<double> rate;
};

void sourceRate(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* query = static_cast<RateQuery*>(userdata);
    if (eol == 0 && info)
        query->rate = static_cast<double>(info->sample_spec.rate);
    else
        query->connection->signal();
}

void sinkRate(pa_context*, const pa_sink_info* info, int eol, void* userdata) {
    auto* query = static_cast<RateQuery*>(userdata);
    if (eol == 0 && info)
        query->rate = static_cast<double>(info->sample_spec.rate);
    else
        query->connection->signal();
}

struct FormatQuery {
    const PulseAudioConnection* connection;
    std::optional<PulseAudioDeviceLayer::SourceFormat> format;
};

void sourceFormatListed(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* query = static_cast<FormatQuery*>(userdata);
    if (eol == 0 && info)
        query->format =
            PulseAudioDeviceLayer::SourceFormat{{static_cast<double>(info->sample_spec.rate),
                                                 static_cast<int>(info->sample_spec.channels)},
                                                info->monitor_of_sink != PA_INVALID_INDEX};
    else
        query->connection->signal();
}

void subscribed(pa_context*, int, void* userdata) {
    static_cast<PulseAudioConnection*>(userdata)->signal();
}

} // namespace

PulseAudioDeviceLayer::PulseAudioDeviceLayer() : failure_(connectingText) {
    // The first attempt too is the background thread's: the server may take seconds to answer.
    retry_ = std::thread([this] {
        tryConnect(PulseAudioConnection::replyTimeout);
        retryLoop();
    });
}

PulseAudioDeviceLayer::~PulseAudioDeviceLayer() {
    abandonWaits();
    {
        std::lock_guard guard(stateMutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    retry_.join();
    std::shared_ptr<PulseAudioConnection> last;
    {
        std::lock_guard guard(stateMutex_);
        last = std::move(connection_);
    }
    last.reset();
}

void PulseAudioDeviceLayer::abandonWaits() {
    abandoned_->store(true);
}

std::shared_ptr<PulseAudioConnection> PulseAudioDeviceLayer::current() const {
    std::lock_guard guard(stateMutex_);
    return broken_ ? nullptr : connection_;
}

void PulseAudioDeviceLayer::lost(const PulseAudioConnection* connection) {
    {
        std::lock_guard guard(stateMutex_);
        if (connection_.get() != connection || broken_)
            return;
        broken_ = true;
        failure_ = "Audio server unavailable (connection lost)";
    }
    wake_.notify_all();
}

void PulseAudioDeviceLayer::tryConnect(std::chrono::milliseconds timeout) {
    Attempt result = Attempt::failed;
    {
        std::lock_guard attempt(connectMutex_);
        result = tryConnectHoldingAttempt(timeout);
    }
    // Whatever was listed before may have changed while there was no connection.
    if (result == Attempt::connected)
        notifyListener();
}

PulseAudioDeviceLayer::Attempt
PulseAudioDeviceLayer::tryConnectHoldingAttempt(std::chrono::milliseconds timeout) {
    std::shared_ptr<PulseAudioConnection> failed;
    {
        std::lock_guard guard(stateMutex_);
        if (stopping_)
            return Attempt::failed;
        if (connection_ && !broken_)
            return Attempt::alreadyConnected;
        failed = std::move(connection_);
        broken_ = false;
    }
    failed.reset(); // outside our lock; never on its own loop's thread

    std::shared_ptr<PulseAudioConnection> fresh;
    std::string failure;
    try {
        fresh = std::make_shared<PulseAudioConnection>("Kelvo Bridge devices", "Kelvo.devices",
                                                       timeout, abandoned_);
        PulseAudioConnection::Lock lock(*fresh);
        fresh->setLostHandler([this, raw = fresh.get()] { lost(raw); });
        pa_context_set_subscribe_callback(fresh->context(), &subscriptionEvent, this);
        const auto mask = static_cast<pa_subscription_mask_t>(
            PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER);
        if (!fresh->await(pa_context_subscribe(fresh->context(), mask, &subscribed, fresh.get()),
                          timeout) ||
            !fresh->isConnected()) {
            failure = "Audio server unavailable (" + fresh->lastError() + ")";
        } else {
            // Stored while the loop is locked: a failure from here on reaches `lost` after
            // the connection is the current one, so it is never missed.
            std::lock_guard guard(stateMutex_);
            if (!stopping_) {
                connection_ = fresh;
                failure_.clear();
            }
        }
    } catch (const AudioInputException& e) {
        failure = e.what();
    }
    if (!failure.empty()) {
        fresh.reset();
        std::lock_guard guard(stateMutex_);
        failure_ = failure;
        return Attempt::failed;
    }
    std::lock_guard guard(stateMutex_);
    return connection_ == fresh ? Attempt::connected : Attempt::failed;
}

void PulseAudioDeviceLayer::retryLoop() {
    std::unique_lock lock(stateMutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !connection_ || broken_; });
        if (stopping_)
            return;
        // A connection that just failed is replaced at once; after a failed attempt the next
        // one waits, so a server that is away costs one refused connect per interval.
        if (!broken_) {
            if (wake_.wait_for(lock, retryInterval, [this] { return stopping_; }))
                return;
            if (connection_ && !broken_)
                continue;
        }
        lock.unlock();
        tryConnect(retryInterval);
        lock.lock();
    }
}

void PulseAudioDeviceLayer::notifyListener() {
    std::lock_guard guard(listenerMutex_);
    if (listener_)
        listener_();
}

std::optional<std::string> PulseAudioDeviceLayer::unavailableReason() const {
    std::lock_guard guard(stateMutex_);
    if (connection_ && !broken_)
        return std::nullopt;
    return failure_.empty() ? "Audio server unavailable" : failure_;
}

std::optional<std::string> PulseAudioDeviceLayer::connectNow() {
    if (!unavailableReason())
        return std::nullopt;
    // Off the main thread (capture set-up): an attempt under way is waited for, then one
    // short try of its own.
    Attempt result = Attempt::failed;
    {
        std::lock_guard attempt(connectMutex_);
        result = tryConnectHoldingAttempt(quickAttempt);
    }
    if (result == Attempt::connected)
        notifyListener();
    return unavailableReason();
}

AudioClockTransport PulseAudioDeviceLayer::transportFromProperties(const char* bus,
                                                                   const char* formFactor) {
    const std::string_view b = bus ? bus : "";
    const std::string_view f = formFactor ? formFactor : "";
    if (b == "usb")
        return AudioClockTransport::usb;
    if (b == "thunderbolt")
        return AudioClockTransport::thunderbolt;
    if (f == "internal" || b == "pci")
        return AudioClockTransport::builtIn;
    return AudioClockTransport::other;
}

std::optional<std::pair<std::string, bool>> PulseAudioDeviceLayer::parseID(const std::string& id) {
    if (id.starts_with("source:"))
        return std::pair{id.substr(7), true};
    if (id.starts_with("sink:"))
        return std::pair{id.substr(5), false};
    return std::nullopt;
}

std::vector<AudioDeviceRecord> PulseAudioDeviceLayer::devices() {
    Listing listing{nullptr, {}};
    const bool answered = withConnection([&](const PulseAudioConnection& connection) {
        listing.connection = &connection;
        pa_context* context = connection.context();
        return connection.await(
                   pa_context_get_source_info_list(context, &sourceListed, &listing)) &&
               connection.await(pa_context_get_sink_info_list(context, &sinkListed, &listing));
    });
    std::lock_guard guard(stateMutex_);
    if (answered && !listing.failed)
        lastDevices_ = listing.records;
    // A partial or missing answer would look as if devices had been unplugged.
    return lastDevices_;
}

PulseAudioDeviceLayer::DefaultNames PulseAudioDeviceLayer::defaultNames() {
    Defaults defaults{nullptr, {}, {}};
    withConnection([&](const PulseAudioConnection& connection) {
        defaults.connection = &connection;
        return connection.await(
            pa_context_get_server_info(connection.context(), &serverInfo, &defaults));
    });
    return {defaults.source, defaults.sink};
}

std::optional<std::string> PulseAudioDeviceLayer::defaultInputDevice() {
    const auto source = defaultNames().source;
    return source ? std::optional(sourceID(*source)) : std::nullopt;
}

std::optional<std::string> PulseAudioDeviceLayer::defaultOutputDevice() {
    const auto sink = defaultNames().sink;
    return sink ? std::optional(sinkID(*sink)) : std::nullopt;
}

std::optional<double> PulseAudioDeviceLayer::nominalSampleRate(const std::string& id) {
    {
        std::lock_guard guard(overridesMutex_);
        if (const auto it = rateOverrides_.find(id); it != rateOverrides_.end())
            return it->second;
    }
    const auto parsed = parseID(id);
    // An empty name is refused before it reaches the server; that is no lost connection.
    if (!parsed || parsed->first.empty())
        return std::nullopt;
    RateQuery query{nullptr, {}};
    withConnection([&](const PulseAudioConnection& connection) {
        query.connection = &connection;
        pa_context* context = connection.context();
        const char* name = parsed->first.c_str();
        return connection.await(
            parsed->second ? pa_context_get_source_info_by_name(context, name, &sourceRate, &query)
                           : pa_context_get_sink_info_by_name(context, name, &sinkRate, &query));
    });
    return query.rate;
}

int PulseAudioDeviceLayer::setNominalSampleRate(const std::string& id, double hz) {
    std::lock_guard guard(overridesMutex_);
    rateOverrides_[id] = hz;
    return 0;
}

std::vector<AudioSampleRateRange> PulseAudioDeviceLayer::availableSampleRates(const std::string&) {
    return {};
}

std::optional<PulseAudioDeviceLayer::SourceFormat>
PulseAudioDeviceLayer::sourceFormat(const std::optional<std::string>& sourceName) {
    const std::string name = sourceName.value_or("@DEFAULT_SOURCE@");
    if (name.empty())
        return std::nullopt;
    FormatQuery query{nullptr, {}};
    withConnection([&](const PulseAudioConnection& connection) {
        query.connection = &connection;
        return connection.await(pa_context_get_source_info_by_name(
            connection.context(), name.c_str(), &sourceFormatListed, &query));
    });
    return query.format;
}

void PulseAudioDeviceLayer::subscriptionEvent(pa_context*, pa_subscription_event_type_t type,
                                              uint32_t, void* userdata) {
    auto* self = static_cast<PulseAudioDeviceLayer*>(userdata);
    const auto facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const auto kind = type & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    // Volume and state changes arrive as "change" of a source or sink; only the list and the
    // defaults (a server change) matter here.
    if (facility != PA_SUBSCRIPTION_EVENT_SERVER && kind == PA_SUBSCRIPTION_EVENT_CHANGE)
        return;
    std::lock_guard guard(self->listenerMutex_);
    if (self->listener_)
        self->listener_();
}

bool PulseAudioDeviceLayer::setChangeListener(std::function<void()> listener) {
    // Every connection subscribes when it is made; the events reach whoever listens now.
    std::lock_guard guard(listenerMutex_);
    listener_ = std::move(listener);
    return true;
}

} // namespace kelvo

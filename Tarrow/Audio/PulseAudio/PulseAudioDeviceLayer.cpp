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
};

void sourceListed(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* listing = static_cast<Listing*>(userdata);
    if (eol != 0 || !info) {
        listing->connection->signal();
        return;
    }
    AudioDeviceRecord record;
    record.id = PulseAudioDeviceLayer::sourceID(info->name);
    record.uid = nonEmpty(info->name);
    record.name = nonEmpty(info->description);
    record.transport = PulseAudioDeviceLayer::transportFromProperties(
        pa_proplist_gets(info->proplist, PA_PROP_DEVICE_BUS),
        pa_proplist_gets(info->proplist, PA_PROP_DEVICE_FORM_FACTOR));
    // A sink's monitor carries playback back in; it is not an input of the room.
    record.inputChannels = info->monitor_of_sink != PA_INVALID_INDEX
                               ? 0
                               : static_cast<int>(info->sample_spec.channels);
    listing->records.push_back(std::move(record));
}

void sinkListed(pa_context*, const pa_sink_info* info, int eol, void* userdata) {
    auto* listing = static_cast<Listing*>(userdata);
    if (eol != 0 || !info) {
        listing->connection->signal();
        return;
    }
    AudioDeviceRecord record;
    record.id = PulseAudioDeviceLayer::sinkID(info->name);
    record.uid = nonEmpty(info->name);
    record.name = nonEmpty(info->description);
    record.transport = PulseAudioDeviceLayer::transportFromProperties(
        pa_proplist_gets(info->proplist, PA_PROP_DEVICE_BUS),
        pa_proplist_gets(info->proplist, PA_PROP_DEVICE_FORM_FACTOR));
    record.inputChannels = 0;
    listing->records.push_back(std::move(record));
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
    std::optional<CaptureFormat> format;
};

void sourceFormatListed(pa_context*, const pa_source_info* info, int eol, void* userdata) {
    auto* query = static_cast<FormatQuery*>(userdata);
    if (eol == 0 && info)
        query->format = CaptureFormat{static_cast<double>(info->sample_spec.rate),
                                      static_cast<int>(info->sample_spec.channels)};
    else
        query->connection->signal();
}

void subscribed(pa_context*, int, void* userdata) {
    static_cast<PulseAudioConnection*>(userdata)->signal();
}

} // namespace

PulseAudioDeviceLayer::PulseAudioDeviceLayer()
    : connection_(std::make_unique<PulseAudioConnection>("Kelvo Bridge devices", "Kelvo.devices")) {
}

PulseAudioDeviceLayer::~PulseAudioDeviceLayer() {
    connection_.reset();
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
    Listing listing{connection_.get(), {}};
    PulseAudioConnection::Lock lock(*connection_);
    connection_->await(
        pa_context_get_source_info_list(connection_->context(), &sourceListed, &listing));
    connection_->await(
        pa_context_get_sink_info_list(connection_->context(), &sinkListed, &listing));
    return listing.records;
}

std::optional<std::string> PulseAudioDeviceLayer::defaultInputDevice() {
    Defaults defaults{connection_.get(), {}, {}};
    PulseAudioConnection::Lock lock(*connection_);
    connection_->await(pa_context_get_server_info(connection_->context(), &serverInfo, &defaults));
    if (!defaults.source)
        return std::nullopt;
    return sourceID(*defaults.source);
}

std::optional<std::string> PulseAudioDeviceLayer::defaultOutputDevice() {
    Defaults defaults{connection_.get(), {}, {}};
    PulseAudioConnection::Lock lock(*connection_);
    connection_->await(pa_context_get_server_info(connection_->context(), &serverInfo, &defaults));
    if (!defaults.sink)
        return std::nullopt;
    return sinkID(*defaults.sink);
}

std::optional<double> PulseAudioDeviceLayer::nominalSampleRate(const std::string& id) {
    {
        std::lock_guard guard(overridesMutex_);
        if (const auto it = rateOverrides_.find(id); it != rateOverrides_.end())
            return it->second;
    }
    const auto parsed = parseID(id);
    if (!parsed)
        return std::nullopt;
    RateQuery query{connection_.get(), {}};
    PulseAudioConnection::Lock lock(*connection_);
    pa_context* context = connection_->context();
    connection_->await(parsed->second ? pa_context_get_source_info_by_name(
                                            context, parsed->first.c_str(), &sourceRate, &query)
                                      : pa_context_get_sink_info_by_name(
                                            context, parsed->first.c_str(), &sinkRate, &query));
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

std::optional<CaptureFormat>
PulseAudioDeviceLayer::sourceFormat(const std::optional<std::string>& sourceName) {
    FormatQuery query{connection_.get(), {}};
    PulseAudioConnection::Lock lock(*connection_);
    const std::string name = sourceName.value_or("@DEFAULT_SOURCE@");
    connection_->await(pa_context_get_source_info_by_name(connection_->context(), name.c_str(),
                                                          &sourceFormatListed, &query));
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
    {
        std::lock_guard guard(listenerMutex_);
        listener_ = std::move(listener);
    }
    PulseAudioConnection::Lock lock(*connection_);
    pa_context_set_subscribe_callback(connection_->context(), &subscriptionEvent, this);
    const auto mask = static_cast<pa_subscription_mask_t>(
        PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER);
    return connection_->await(pa_context_subscribe(connection_->context(), mask, &subscribed,
                                                   connection_.get())) &&
           connection_->isConnected();
}

} // namespace kelvo

// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/pipewirerecordingsource.h"

#include <QSocketNotifier>

#include <pipewire/pipewire.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

namespace {

// How long connecting may wait for the registry's first listing. The daemon answers in a few milliseconds; this
// only bounds a daemon that hangs.
constexpr std::chrono::milliseconds firstListingTimeout { 250 };

void initPipeWire()
{
    static std::once_flag once;
    std::call_once(once, [] {
        pw_init(nullptr, nullptr);
        // PipeWire's own log goes to stderr; a missing daemon is an ordinary state here, not worth a line every
        // poll. PIPEWIRE_DEBUG still turns it on for debugging.
        if (std::getenv("PIPEWIRE_DEBUG") == nullptr)
            pw_log_set_level(SPA_LOG_LEVEL_NONE);
    });
}

std::uint32_t numberProperty(const spa_dict* props, const char* key)
{
    const char* text = props != nullptr ? spa_dict_lookup(props, key) : nullptr;
    if (text == nullptr)
        return SPA_ID_INVALID;
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value > SPA_ID_INVALID)
        return SPA_ID_INVALID;
    return std::uint32_t(value);
}

std::string textProperty(const spa_dict* props, const char* key)
{
    const char* text = props != nullptr ? spa_dict_lookup(props, key) : nullptr;
    return text != nullptr ? std::string(text) : std::string();
}

} // namespace

/**
 * The PipeWire objects: a loop and a context made once (loading the client configuration and its modules costs a
 * few milliseconds), and a connection to the daemon with its registry, made again after the daemon went away.
 */
struct PipeWireRecordingSource::Connection
{
    explicit Connection(ScreenCastGraph& followed)
        : graph(followed)
    {
        loop = pw_loop_new(nullptr);
        if (loop != nullptr)
            context = pw_context_new(loop, nullptr, 0);
    }

    ~Connection()
    {
        disconnect();
        if (context != nullptr)
            pw_context_destroy(context);
        if (loop != nullptr)
            pw_loop_destroy(loop);
    }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool connect(const std::string& remoteName)
    {
        if (context == nullptr)
            return false;
        pw_properties* props = remoteName.empty()
            ? nullptr
            : pw_properties_new(PW_KEY_REMOTE_NAME, remoteName.c_str(), nullptr);
        core = pw_context_connect(context, props, 0);
        if (core == nullptr)
            return false;
        broken = false;
        listed = false;
        coreEvents.version = PW_VERSION_CORE_EVENTS;
        coreEvents.done = &Connection::onDone;
        coreEvents.error = &Connection::onError;
        pw_core_add_listener(core, &coreListener, &coreEvents, this);

        registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
        if (registry == nullptr)
            return false;
        registryEvents.version = PW_VERSION_REGISTRY_EVENTS;
        registryEvents.global = &Connection::onGlobal;
        registryEvents.global_remove = &Connection::onGlobalRemove;
        pw_registry_add_listener(registry, &registryListener, &registryEvents, this);

        // Wait for the first listing, so the poll that connects already answers from the whole graph.
        listingSeq = pw_core_sync(core, PW_ID_CORE, 0);
        const auto deadline = std::chrono::steady_clock::now() + firstListingTimeout;
        while (!listed && !broken) {
            const auto left
                = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                break;
            dispatch(int(left.count()));
        }
        if (!listed || broken)
            return false;

        notifier = std::make_unique<QSocketNotifier>(pw_loop_get_fd(loop), QSocketNotifier::Read);
        QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(), [this] {
            dispatch(0);
            // A dead connection's socket stays readable; the next poll reconnects.
            if (broken)
                notifier->setEnabled(false);
        });
        return true;
    }

    void disconnect()
    {
        notifier.reset();
        if (registry != nullptr) {
            spa_hook_remove(&registryListener);
            pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
            registry = nullptr;
        }
        if (core != nullptr) {
            spa_hook_remove(&coreListener);
            pw_core_disconnect(core);
            core = nullptr;
        }
        graph.clear();
    }

    bool isConnected() const { return core != nullptr && !broken; }

    /** Handles what the daemon sent, waiting up to `timeoutMs` for the first of it (0: only what is there). */
    void dispatch(int timeoutMs)
    {
        pw_loop_enter(loop);
        pw_loop_iterate(loop, timeoutMs);
        pw_loop_leave(loop);
    }

    static void onGlobal(void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
        const spa_dict* props)
    {
        auto* self = static_cast<Connection*>(data);
        const std::string_view kind = type != nullptr ? type : "";
        if (kind == PW_TYPE_INTERFACE_Node) {
            self->graph.addNode(id, numberProperty(props, PW_KEY_CLIENT_ID), textProperty(props, PW_KEY_NODE_NAME),
                textProperty(props, PW_KEY_MEDIA_CLASS));
        } else if (kind == PW_TYPE_INTERFACE_Link) {
            self->graph.addLink(
                id, numberProperty(props, PW_KEY_LINK_OUTPUT_NODE), numberProperty(props, PW_KEY_LINK_INPUT_NODE));
        } else if (kind == PW_TYPE_INTERFACE_Client) {
            self->graph.addClient(id, textProperty(props, PW_KEY_APP_NAME));
        }
    }

    static void onGlobalRemove(void* data, std::uint32_t id)
    {
        static_cast<Connection*>(data)->graph.remove(id);
    }

    static void onDone(void* data, std::uint32_t id, int seq)
    {
        auto* self = static_cast<Connection*>(data);
        if (id == PW_ID_CORE && seq == self->listingSeq)
            self->listed = true;
    }

    static void onError(void* data, std::uint32_t id, int, int res, const char*)
    {
        // The daemon went away (or refused us): start over at the next poll.
        if (id == PW_ID_CORE && res == -EPIPE)
            static_cast<Connection*>(data)->broken = true;
    }

    ScreenCastGraph& graph;
    pw_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_registry* registry = nullptr;
    spa_hook coreListener {};
    spa_hook registryListener {};
    pw_core_events coreEvents {};
    pw_registry_events registryEvents {};
    std::unique_ptr<QSocketNotifier> notifier;
    int listingSeq = 0;
    bool listed = false;
    bool broken = false;
};

PipeWireRecordingSource::PipeWireRecordingSource(std::string remoteName)
    : m_remoteName(std::move(remoteName))
{
}

PipeWireRecordingSource::~PipeWireRecordingSource() = default;

bool PipeWireRecordingSource::isConnected() const
{
    return m_connection != nullptr && m_connection->isConnected();
}

bool PipeWireRecordingSource::isRecording()
{
    if (m_connection == nullptr) {
        initPipeWire();
        m_connection = std::make_unique<Connection>(m_graph);
    }
    Connection& connection = *m_connection;
    if (connection.isConnected())
        connection.dispatch(0);
    if (!connection.isConnected()) {
        connection.disconnect();
        if (!connection.connect(m_remoteName)) {
            connection.disconnect();
            return false;
        }
    }
    return m_graph.isCasting();
}

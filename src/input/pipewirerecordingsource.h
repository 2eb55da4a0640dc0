// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "input/recordingsources.h"
#include "input/screencastgraph.h"

#include <memory>

/**
 * A recording is running when PipeWire carries a screen cast with a consumer (see ScreenCastGraph): the desktop
 * portal's screen casts (browsers sharing a screen, OBS on Wayland, Kooha) and GNOME's and KDE's built-in recorders.
 *
 * One connection to the PipeWire daemon is kept and its registry followed as objects come and go; the connection's
 * events are handled on the main thread's event loop, so a poll reads a graph that is already up to date. Without
 * a daemon (or after it went away) every poll tries to connect once, which costs one refused socket connection,
 * and answers false meanwhile.
 */
class PipeWireRecordingSource final : public RecordingSource
{
public:
    /** `remoteName` picks the daemon's socket; empty is the user's default (PIPEWIRE_REMOTE or "pipewire-0"). */
    explicit PipeWireRecordingSource(std::string remoteName = {});
    ~PipeWireRecordingSource() override;

    bool isRecording() override;

    /** Whether a connection is up; connecting happens in isRecording(). */
    bool isConnected() const;

private:
    struct Connection;

    std::string m_remoteName;
    ScreenCastGraph m_graph;
    std::unique_ptr<Connection> m_connection;
};

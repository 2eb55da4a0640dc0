// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

/**
 * What the PipeWire registry says about video streams, reduced to what tells a screen cast: the video nodes, the
 * links between nodes and the clients that made them.
 *
 * A screen is being cast when a node that produces video from the screen has a link to a consumer. Screen casts
 * of the desktop portal and of the built-in recorders look like this:
 *   - GNOME (mutter) and KDE (KWin) make a plain output stream, so its node's class is "Stream/Output/Video";
 *   - xdg-desktop-portal-wlr and -hyprland make a "Video/Source" node.
 * Cameras are "Video/Source" nodes too; they are made by the session manager and named after their device API
 * ("v4l2_input…", "libcamera_input…"), which keeps them out. A capture node nobody reads from (no link) is an
 * idle session and does not count.
 *
 * Registry ids are unique across object types while the objects exist, so one id space is used for all of them.
 */
class ScreenCastGraph
{
public:
    void addNode(std::uint32_t id, std::uint32_t clientId, std::string nodeName, std::string mediaClass);
    void addLink(std::uint32_t id, std::uint32_t outputNode, std::uint32_t inputNode);
    void addClient(std::uint32_t id, std::string applicationName);
    /** Forgets the node, link or client of that id; unknown ids are ignored. */
    void remove(std::uint32_t id);
    void clear();

    bool isCasting() const;

    /** Whether a node of this kind produces video from the screen (not yet whether anybody reads it). */
    bool isScreenCaptureNode(std::uint32_t id) const;

private:
    struct Node
    {
        std::uint32_t clientId = 0;
        std::string name;
        std::string mediaClass;
    };
    struct Link
    {
        std::uint32_t outputNode = 0;
        std::uint32_t inputNode = 0;
    };

    std::unordered_map<std::uint32_t, Node> m_nodes;
    std::unordered_map<std::uint32_t, Link> m_links;
    std::unordered_map<std::uint32_t, std::string> m_clients;
};

// SPDX-License-Identifier: GPL-3.0-or-later
#include "input/screencastgraph.h"

#include <algorithm>
#include <array>
#include <string_view>

using namespace std::string_view_literals;

namespace {

// Session managers: what they make as "Video/Source" are camera devices.
constexpr std::array deviceManagers { "WirePlumber"sv, "pipewire-media-session"sv };
constexpr std::array cameraNodePrefixes { "v4l2_"sv, "libcamera_"sv };

} // namespace

void ScreenCastGraph::addNode(std::uint32_t id, std::uint32_t clientId, std::string nodeName, std::string mediaClass)
{
    // Only video nodes can ever matter; audio streams are the bulk of a desktop's graph.
    if (mediaClass != "Stream/Output/Video"sv && mediaClass != "Video/Source"sv)
        return;
    m_nodes.insert_or_assign(id, Node { clientId, std::move(nodeName), std::move(mediaClass) });
}

void ScreenCastGraph::addLink(std::uint32_t id, std::uint32_t outputNode, std::uint32_t inputNode)
{
    m_links.insert_or_assign(id, Link { outputNode, inputNode });
}

void ScreenCastGraph::addClient(std::uint32_t id, std::string applicationName)
{
    m_clients.insert_or_assign(id, std::move(applicationName));
}

void ScreenCastGraph::remove(std::uint32_t id)
{
    m_nodes.erase(id);
    m_links.erase(id);
    m_clients.erase(id);
}

void ScreenCastGraph::clear()
{
    m_nodes.clear();
    m_links.clear();
    m_clients.clear();
}

bool ScreenCastGraph::isScreenCaptureNode(std::uint32_t id) const
{
    const auto node = m_nodes.find(id);
    if (node == m_nodes.end())
        return false;
    if (node->second.mediaClass == "Stream/Output/Video"sv)
        return true;
    const std::string_view name = node->second.name;
    if (std::ranges::any_of(cameraNodePrefixes, [name](std::string_view prefix) { return name.starts_with(prefix); }))
        return false;
    const auto client = m_clients.find(node->second.clientId);
    return client == m_clients.end() || std::ranges::find(deviceManagers, client->second) == deviceManagers.end();
}

bool ScreenCastGraph::isCasting() const
{
    return std::ranges::any_of(m_links, [this](const auto& link) {
        return link.second.outputNode != link.second.inputNode && isScreenCaptureNode(link.second.outputNode);
    });
}

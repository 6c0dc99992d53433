#pragma once

#include "platform/net_service.h"
#include "platform/values/system_facts.h"

#include <vector>

namespace quillbox::diagnosis {

/// An interface, with its index, which the multicast probe needs.
struct SurveyedInterface {
    int index = 0;
    InterfaceFacts facts;
};

struct Survey {
    std::vector<SurveyedInterface> interfaces; ///< without the loopback interface
    std::vector<SocketAddress> addresses;      ///< of this computer, on all interfaces
};

/// Reads the interfaces of this computer from the kernel. Sends nothing to the network.
Survey surveyInterfaces();

} // namespace quillbox::diagnosis

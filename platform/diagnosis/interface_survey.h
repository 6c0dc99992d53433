#pragma once

#include "platform/net_service.h"
#include "platform/system_facts.h"

#include <vector>

namespace quillbox::diagnosis {

/// An interface, with what the multicast probe needs to send by it.
struct SurveyedInterface {
    int index = 0;
    InterfaceFacts facts;
};

struct Survey {
    std::vector<SurveyedInterface> interfaces; ///< without the loopback interface
    std::vector<SocketAddress> addresses;      ///< of this computer, on all interfaces
};

/// The interfaces of this computer. Nothing is sent.
Survey surveyInterfaces();

} // namespace quillbox::diagnosis

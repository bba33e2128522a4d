#pragma once

#include "platform/api/ClientJsonApi.hpp"

/// Client of the NMOS node service (AMWA IS-04).
class NmosClientIpc : public ClientJsonApi {
public:
    NmosClientIpc();

    /// Asks for the device: on success `reply` is an object such as {"device": {"id": "..."}}. A
    /// "device" that it holds is an object or null, and that object's "id" is convertible to text.
    /// Fails as ClientJsonApi::request does; an answer of another shape is -101.
    int getDeviceInfo(Json::Value& reply);
};

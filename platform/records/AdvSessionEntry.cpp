#include "platform/records/AdvSessionEntry.hpp"

#include "platform/records/JsonFields.hpp"

using json_fields::Field;

namespace {
constexpr std::tuple kSessionFields{Field{"id", &AdvSessionEntry::id},
                                    Field{"name", &AdvSessionEntry::name},
                                    Field{"sdp", &AdvSessionEntry::sdp}};
} // namespace

void AdvSessionEntry::Serialize(Json::Value& out) const {
    json_fields::write(*this, kSessionFields, out);
}

void AdvSessionEntry::Deserialize(Json::Value& in) {
    json_fields::read(*this, kSessionFields, in);
}

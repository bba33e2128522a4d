#include "platform/records/AdvSessionEntry.hpp"

#include "platform/records/JsonFields.hpp"

using json_fields::Field;

namespace {
constexpr std::tuple kFields{Field{"id", &AdvSessionEntry::id},
                             Field{"name", &AdvSessionEntry::name},
                             Field{"sdp", &AdvSessionEntry::sdp}};
} // namespace

void AdvSessionEntry::Serialize(Json::Value& out) const {
    json_fields::write(*this, kFields, out);
}

void AdvSessionEntry::Deserialize(Json::Value& in) {
    json_fields::read(*this, kFields, in);
}

#include "model/StreamConfiguration.hpp"
#include "model/TextTable.hpp"
#include "platform/records/JsonKey.hpp"
#include "platform/records/JsonMember.hpp"

#include <algorithm>
#include <cctype>
#include <string_view>

using text_table::Row;
using text_table::textOf;
using text_table::Use;
using text_table::valueOf;

namespace {

constexpr JsonKey kClass{"class"};
constexpr JsonKey kState{"state"};
constexpr JsonKey kType{"type"};
constexpr JsonKey kRedundantType{"redundant-type"};
constexpr JsonKey kCodec{"codec"};

constexpr Row<StreamClass::stream_class_t> kClasses[] = {
    {"receiver", StreamClass::receiver},
    {"sender", StreamClass::sender},
};

constexpr Row<State::state_t> kStates[] = {
    // Not read back by name: it is what every unknown text gives.
    {"Disabled", State::disabled, Use::written_only},
    {"Enabled", State::enabled},
    {"Paused", State::paused},
};

constexpr Row<StreamType::stream_type_t> kTypes[] = {
    {"audio", StreamType::audio},
    {"video", StreamType::video},
    // The format has it so: written, but not taken back; a reader keeps the type that it has.
    {"ancillary", StreamType::ancillary, Use::written_only},
};

constexpr Row<RedundantType::redundant_type_t> kRedundantTypes[] = {
    {"none", RedundantType::none},
    {"primary", RedundantType::primary},
    {"secondary", RedundantType::secondary},
};

/// One line here makes a codec known in both directions. The text is what is written; any letter
/// case of it is read. The numbers are the session manager's, 7 being taken; one that the code
/// never asks for needs no enumerator, Codec::codec_t{8} does.
constexpr Row<Codec::codec_t> kCodecs[] = {
    {"AM824", Codec::am824},
    {"L32", Codec::l32},
    {"L24", Codec::l24},
    {"L16", Codec::l16},
    {"SMPTE2022-6", Codec::smpte2022_6},
    {"AM824_TRANSPARENT", Codec::am824_transparent},
    {"raw", Codec::raw},
};

bool sameButForCase(std::string_view left, std::string_view right) {
    const auto sameLetter = [](unsigned char a, unsigned char b) {
        return std::tolower(a) == std::tolower(b);
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), sameLetter);
}

} // namespace

void StreamClass::Serialize(Json::Value& out) const {
    out[kClass] = textOf(kClasses, value, "undefined");
}

void StreamClass::Deserialize(Json::Value& in) {
    value = valueOf(kClasses, json_member::text(in, kClass)).value_or(value);
}

void State::Serialize(Json::Value& out) const {
    out[kState] = textOf(kStates, value, "Undefined");
}

void State::Deserialize(Json::Value& in) {
    value = valueOf(kStates, json_member::text(in, kState)).value_or(disabled);
}

void StreamType::Serialize(Json::Value& out) const {
    out[kType] = textOf(kTypes, value, "undefined");
}

void StreamType::Deserialize(Json::Value& in) {
    value = valueOf(kTypes, json_member::text(in, kType)).value_or(value);
}

void RedundantType::Serialize(Json::Value& out) const {
    out[kRedundantType] = textOf(kRedundantTypes, value, "none");
}

void RedundantType::Deserialize(Json::Value& in) {
    const std::string text = json_member::text(in, kRedundantType, "none");
    value = valueOf(kRedundantTypes, text).value_or(value);
}

void Codec::Serialize(Json::Value& out) const {
    out[kCodec] = textOf(kCodecs, value, "Not-supported");
}

void Codec::Deserialize(Json::Value& in) {
    const std::string text = json_member::text(in, kCodec, "AM824");
    value = valueOf(kCodecs, text, sameButForCase).value_or(not_supported);
}

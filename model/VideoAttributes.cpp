#include "model/StreamConfiguration.hpp"
#include "model/TextTable.hpp"
#include "platform/records/JsonKey.hpp"
#include "platform/records/JsonMember.hpp"

using text_table::Row;
using text_table::Use;

namespace {

constexpr JsonKey kTimingMode{"timing-mode"};
constexpr JsonKey kTributary{"tributary"};
constexpr JsonKey kType{"type"};
constexpr JsonKey kIndex{"index"};

constexpr Row<VideoTimingParameters::timing_mode_t> kTimingModes[] = {
    // The format has it so: written, but it does not undo a mode that is set.
    {"unset", VideoTimingParameters::unset, Use::written_only},
    {"frame_sync", VideoTimingParameters::frame_sync},
    {"low_latency", VideoTimingParameters::low_latency},
    // The format has it so: a mode that is there but empty asks for low latency.
    {"", VideoTimingParameters::low_latency, Use::read_only},
    {"2059", VideoTimingParameters::st2059},
};

struct TuningNumber {
    JsonKey key;
    std::int32_t VideoTimingParameters::*member;
};

constexpr TuningNumber kTuningNumbers[] = {
    {"initBufDelay", &VideoTimingParameters::initBufDelay},
    {"minWrRdPtrThresh", &VideoTimingParameters::minWrRdPtrThresh},
    {"maxWrRdPtrThresh", &VideoTimingParameters::maxWrRdPtrThresh},
    {"rtpPktsPerFrame", &VideoTimingParameters::rtpPktsPerFrame},
};

constexpr Row<TributaryType::tributary_type_t> kTributaryTypes[] = {
    {"none", TributaryType::none},
    {"MULTI-2SI", TributaryType::multi_2si},
    {"MULTI-SD", TributaryType::multi_sd},
};

} // namespace

void VideoTimingParameters::Serialize(Json::Value& out) const {
    out[kTimingMode] = text_table::textOf(kTimingModes, timingMode, "ERROR");
    for (const TuningNumber& number : kTuningNumbers) {
        if (this->*number.member != kNotSet) {
            out[number.key] = this->*number.member;
        }
    }
}

void VideoTimingParameters::Deserialize(Json::Value& in) {
    if (const Json::Value* mode = json_member::find(in, kTimingMode); mode != nullptr) {
        timingMode = text_table::valueOf(kTimingModes, mode->asString()).value_or(timingMode);
    }
    for (const TuningNumber& number : kTuningNumbers) {
        this->*number.member = json_member::signed32(in, number.key, this->*number.member);
    }
}

void TributaryType::Serialize(Json::Value& out) const {
    Json::Value& tributary = out[kTributary];
    tributary[kType] = text_table::textOf(kTributaryTypes, type, "none");
    tributary[kIndex] = index;
}

void TributaryType::Deserialize(Json::Value& in) {
    const Json::Value& tributary = in[kTributary];
    const std::string text = json_member::text(tributary, kType, "none");
    type = text_table::valueOf(kTributaryTypes, text).value_or(type);
    index = json_member::signed32(tributary, kIndex, kNoIndex);
}

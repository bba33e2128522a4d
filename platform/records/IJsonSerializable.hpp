#pragma once

#include <json/value.h>

/// A record with a JSON form.
///
/// A record writes its keys into the object that it is handed, which is its holder's object; it
/// nests an object of its own only where its documentation says so. Neither operation reports
/// failure: a value of a type that cannot be converted raises Json::Exception, and the record then
/// stays as far as the reading got. Callers that read what came from outside read into a fresh
/// record and drop it when that happens.
class IJsonSerializable {
public:
    virtual ~IJsonSerializable() = default;

    /// Sets the record's keys on `out`, overwriting members of the same name. `out` must be an
    /// object or null; it is not cleared first.
    virtual void Serialize(Json::Value& out) const = 0;

    /// Sets the record from the keys of `in`, which must be an object or null. A missing nested
    /// object or list is added to `in` as null.
    virtual void Deserialize(Json::Value& in) = 0;

protected:
    IJsonSerializable() = default;
    IJsonSerializable(const IJsonSerializable&) = default;
    IJsonSerializable(IJsonSerializable&&) = default;
    IJsonSerializable& operator=(const IJsonSerializable&) = default;
    IJsonSerializable& operator=(IJsonSerializable&&) = default;
};

#pragma once

// IFIDSet: a set of record ids, to which searches and indexes add what they
// find and which the record index uses for the numbers it has reserved.
// FIDSet is its implementation; CoCreateFIDSet stands for the component
// model's creation of it from CLSID_FIDSet.

#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/Export.h"
#include "foundation/Guid.h"
#include "foundation/HResult.h"

namespace quillet {

QUILLET_EXPORT extern const IID IID_IFIDSet;

class QUILLET_EXPORT IFIDSet {
public:
    virtual ~IFIDSet() = default;
    // Adding an id that is already there changes nothing (S_OK all the same).
    virtual HRESULT Add(int32_t id) = 0;
    // S_OK when the id was there, S_FALSE when not.
    virtual HRESULT Delete(int32_t id) = 0;
    virtual HRESULT Find(int32_t id, bool* found) const = 0;
    virtual HRESULT get_Count(int32_t* count) const = 0;
    virtual HRESULT SetEmpty() = 0;
    // Enumeration in ascending order: Reset, then Next until it returns
    // S_FALSE (with *id = -1). Changing the set restarts nothing: call Reset.
    virtual HRESULT Reset() = 0;
    virtual HRESULT Next(int32_t* id) = 0;
};

class QUILLET_EXPORT FIDSet : public IFIDSet {
public:
    HRESULT Add(int32_t id) override;
    HRESULT Delete(int32_t id) override;
    HRESULT Find(int32_t id, bool* found) const override;
    HRESULT get_Count(int32_t* count) const override;
    HRESULT SetEmpty() override;
    HRESULT Reset() override;
    HRESULT Next(int32_t* id) override;

private:
    // Ids are appended as they come (searches add them in ascending order
    // mostly) and sorted and made unique only when a query needs it.
    void Normalize() const;

    mutable std::vector<int32_t> ids_;
    mutable bool normalized_ = true;
    size_t cursor_ = 0;
};

// Creates the set of the class `clsid` into *set. Only CLSID_FIDSet is known;
// any other class gives REGDB_E_CLASSNOTREG. On failure *set is empty and the
// debug output gets "CreateInstance of <name> failed: <code>" (the class's
// program identifier, else its braced id), so callers need not report it.
QUILLET_EXPORT HRESULT CoCreateFIDSet(const CLSID& clsid, std::unique_ptr<IFIDSet>* set);

// The program identifier of a known class, allocated with CoTaskMemAlloc;
// REGDB_E_CLASSNOTREG for an unknown class.
QUILLET_EXPORT HRESULT ProgIDFromCLSID(const CLSID& clsid, wchar_t** progId);

// Test seam: while `failure` is a failure code, every CoCreateFIDSet fails
// with it; S_OK restores normal creation.
QUILLET_EXPORT void FailFIDSetCreation(HRESULT failure);

}  // namespace quillet

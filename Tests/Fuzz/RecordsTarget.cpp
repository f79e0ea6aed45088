// The JSON records of the store and the vault: what can be read is written in one form, which reads as the same.

#include "Fuzz/Fuzz.hpp"

#include "Store/Records.hpp"
#include "Support/Errors.hpp"
#include "Support/Json.hpp"
#include "Vault/VaultEntry.hpp"

#include <nlohmann/json.hpp>

using namespace tidewrack;
using fuzz::require;

namespace {

template <typename Record>
void checkRecord(std::string_view text, Record (*decode)(std::string_view, const std::string&)) {
    try {
        const Record record = decode(text, "record");
        const std::string written = compactJson(toJson(record));
        require(decode(written, "again") == record, "a record is read as it was written");
        require(compactJson(toJson(decode(written, "again"))) == written, "a record has one written form");
    } catch (const TidewrackError& error) {
        require(error.kind() == TidewrackError::Kind::corrupt, "what cannot be read is corrupt");
    }
}

} // namespace

FUZZ_TARGET(records) {
    checkRecord<Project>(input, decodeProject);
    checkRecord<SnapshotMeta>(input, decodeSnapshotMeta);
    checkRecord<VaultEntry>(input, decodeVaultEntry);
}

#pragma once

#include "config/SettingsStore.h"
#include "foundation/Lock.h"
#include "foundation/ThreadAnnotations.h"

#include <functional>
#include <map>
#include <utility>

namespace velorine {

/// A layer of values over another store: reads see the layer first.
class LayeredStore : public SettingsStore {
public:
    std::optional<SettingsValue> value(std::string_view key, std::string_view name) override;
    bool exists(std::string_view key, std::string_view name) override;
    std::vector<SettingsEntry> values(std::string_view key) override;
    std::vector<std::string> subkeys(std::string_view key) override;

protected:
    explicit LayeredStore(SettingsStore& beneath) : below(beneath) {}

    /// No value hides the one below.
    void putInLayer(std::string_view key, std::string_view name,
                    std::optional<SettingsValue> value);
    void dropFromLayer(std::string_view key, std::string_view name);
    bool isInLayer(std::string_view key, std::string_view name);

    SettingsStore& below; ///< outlives this

private:
    using Names = std::map<std::string, std::optional<SettingsValue>, std::less<>>;

    std::optional<std::optional<SettingsValue>> inLayer(std::string_view key,
                                                        std::string_view name);

    Lock lock;
    std::map<std::string, Names, std::less<>> layer GUARDED_BY(lock);
};

/// Values that stand over the store for as long as the process runs, as those of a command line.
///
/// A value put here is never written to the store below, and the store's own stays as it was: the
/// engine saves all it has at its end, and must not make the settings of one run the lasting ones.
/// Everything else passes through. What belongs into the store whether or not it is overlaid, as
/// the factory preset does, is written to the store below directly.
class OverlayStore final : public LayeredStore {
public:
    explicit OverlayStore(SettingsStore& beneath) : LayeredStore(beneath) {}

    void put(std::string_view key, std::string_view name, const SettingsValue& value) {
        putInLayer(key, name, value);
    }

    /// Lets the store's own value show, and be written, again.
    void withdraw(std::string_view key, std::string_view name) { dropFromLayer(key, name); }

    void set(std::string_view key, std::string_view name, const SettingsValue& value) override;
    void erase(std::string_view key, std::string_view name) override;
    void createKey(std::string_view key) override { below.createKey(key); }
    void eraseKey(std::string_view key) override { below.eraseKey(key); }
    bool flush() override { return below.flush(); }
    void beginBatch() override { below.beginBatch(); }
    void endBatch() override { below.endBatch(); }
};

/// Keeps all that is set in memory, over a store that is only read.
class CopyOnWriteStore final : public LayeredStore {
public:
    explicit CopyOnWriteStore(SettingsStore& beneath) : LayeredStore(beneath) {}

    void set(std::string_view key, std::string_view name, const SettingsValue& value) override {
        putInLayer(key, name, value);
    }
    void erase(std::string_view key, std::string_view name) override {
        putInLayer(key, name, std::nullopt);
    }
    void eraseKey(std::string_view key) override;
};

} // namespace velorine

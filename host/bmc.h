// SPDX-License-Identifier: Apache-2.0
// A BMC outside this library that answers in the place of a description.
#pragma once

#include <memory>

#include "host/vpdd_host.h"

namespace vpdd::host {

/// Calls the BMC, and releases it in the end.
class Bmc {
public:
    Bmc() = default;
    explicit Bmc(const VpddHostBmc& bmc) : bmc_(new VpddHostBmc(bmc)) {}

    explicit operator bool() const { return bmc_ != nullptr; }
    const VpddHostBmc* operator->() const { return bmc_.get(); }

private:
    struct Release {
        void operator()(VpddHostBmc* bmc) const {
            const std::unique_ptr<VpddHostBmc> owner(bmc);
            if (owner->release != nullptr) owner->release(owner->context);
        }
    };

    std::unique_ptr<VpddHostBmc, Release> bmc_;
};

}  // namespace vpdd::host

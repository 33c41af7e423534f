// A JTAG adapter as the chain manager drives it: a cable that clocks TMS and TDI into a chain and
// samples TDO. The engine's JTAG layer (PGMD_CM_JTAG) builds every scan from these few calls, so
// any adapter that offers them (the simulated bench's cables among them) serves the engine.
#pragma once

#include <string>

class PGMD_CM_JTAG_ADAPTER {
public:
    virtual ~PGMD_CM_JTAG_ADAPTER() = default;

    virtual const std::string& name() const = 0;
    // Opens the adapter; false when it does not answer.
    virtual bool open() = 0;
    // Exclusive use by one owner: true again for the holder, false when refused or held by
    // another owner. Unlocking by anyone but the holder does nothing.
    virtual bool lock(const void* owner) = 0;
    virtual void unlock(const void* owner) = 0;
    virtual const void* lock_owner() const = 0;
    // One TCK cycle: TMS and TDI are driven, TDO is sampled before the rising edge. False when a
    // device of the chain failed the transfer.
    virtual bool clock(bool tms, bool tdi, bool* tdo) = 0;
    // Every TAP of the chain to Test-Logic-Reset. False when the transfer failed.
    virtual bool reset() = 0;
};

#include "qx/hlp.h"

#include "platform/linux/bus.h"
#include "platform/linux/connection.h"
#include "platform/linux/locks.h"
#include "qx/host.h"

#include <unistd.h>

static_assert(sizeof(QxHlpHeader) == 44 && sizeof(QxHlpTlv) == 8);
static_assert(sizeof(QxHlpHeader) + sizeof(QxHlpTlv) == QX_HLP_OVERHEAD);

namespace qx {
namespace {

constexpr Role kKernelRole{.kind = RoleKind::kernel, .number = 0};

struct Kernel {
    QxKernelHandler handler;
    void *context;
};

constinit Kernel gKernel{}; // LockId::kernel

Kernel kernelHere()
{
    const Lock lock(LockId::kernel);
    return gKernel;
}

constexpr uint32_t padded(uint32_t size)
{
    return (size + 3U) & ~3U;
}

// A message need not be aligned for its header, so both are copied in and out.
QxHlpHeader headerOf(const void *message)
{
    QxHlpHeader header{};
    std::memcpy(&header, message, sizeof header);
    return header;
}

} // namespace

Handled handleHlp(const Arrival &arrival)
{
    const bool whole = arrival.header.length >= sizeof(QxHlpHeader) &&
                       headerOf(arrival.payload).ulMagic == QX_HLP_MAGIC &&
                       headerOf(arrival.payload).ulSize == arrival.header.length;
    if (!whole) {
        return {.status = QX_ERR_PROTOCOL, .result = 0};
    }
    const Kernel kernel = kernelHere();
    if (kernel.handler == nullptr) {
        return {.status = QX_ERR_NOT_FOUND, .result = 0};
    }
    return {.status = QX_OK,
            .result = kernel.handler(kernel.context, arrival.payload, arrival.header.length)};
}

void forgetKernel()
{
    const Lock lock(LockId::kernel);
    gKernel = {};
}

} // namespace qx

uint32_t QX_OS_InitHlpMsg(void *message, uint32_t /*zero*/, uint32_t type, uint32_t para1, uint32_t para2)
{
    if (message == nullptr) {
        return QX_ERR;
    }
    QxHlpHeader header{};
    header.ulMagic = QX_HLP_MAGIC;
    header.ulType = type;
    header.ulPara1 = para1;
    header.ulPara2 = para2;
    header.ulSize = sizeof header;
    std::memcpy(message, &header, sizeof header);
    return QX_OK;
}

uint32_t QX_OS_AddTlvToHlpMsg(void *message, uint8_t type, uint16_t size, const void *value)
{
    if (message == nullptr || (value == nullptr && size > 0)) {
        return QX_ERR;
    }
    QxHlpHeader header = qx::headerOf(message);
    if (header.ulMagic != QX_HLP_MAGIC) {
        return QX_ERR;
    }
    const QxHlpTlv item{.ucType = type, .ucReserved = 0, .usSize = size, .ulReserved = 0};
    const uint32_t start = qx::padded(header.ulSize);
    auto *const bytes = static_cast<std::byte *>(message);
    std::memset(bytes + header.ulSize, 0, start - header.ulSize);
    std::memcpy(bytes + start, &item, sizeof item);
    if (size > 0) {
        std::memcpy(bytes + start + sizeof item, value, size);
    }
    header.ulSize = start + static_cast<uint32_t>(sizeof item) + size;
    std::memcpy(message, &header, sizeof header);
    return QX_OK;
}

uint32_t QX_OS_HLP_Send(void *message, uint32_t option1, uint32_t option2)
{
    if (message == nullptr || qx::headerOf(message).ulMagic != QX_HLP_MAGIC) {
        return QX_ERR;
    }
    QxHlpHeader header = qx::headerOf(message);
    header.ulSenderPid = static_cast<uint32_t>(getpid());
    header.ulOption1 = option1;
    header.ulOption2 = option2;
    std::memcpy(message, &header, sizeof header);
    const qx::Kernel here = qx::kernelHere();
    if (here.handler != nullptr) {
        here.handler(here.context, message, header.ulSize);
        return QX_OK;
    }
    uint32_t reached = 0;
    const uint32_t result = qx::sendToAll(qx::kKernelRole, qx::frameOf(qx::FrameKind::hlp, header.ulType),
                                          qx::bytesOf(message, header.ulSize), false, reached);
    return result == QX_OK && reached == 0 ? QX_ERR_NOBODY : result;
}

uint32_t QxHost_ServeKernel(QxKernelHandler handler, void *context)
{
    const qx::Lock lock(qx::LockId::kernel);
    if (handler == nullptr) {
        qx::releaseRole(qx::kKernelRole);
        qx::gKernel = {};
        return QX_OK;
    }
    const uint32_t claimed = qx::claimRole(qx::kKernelRole, true);
    if (claimed == QX_OK) {
        qx::gKernel = {.handler = handler, .context = context};
    }
    return claimed;
}

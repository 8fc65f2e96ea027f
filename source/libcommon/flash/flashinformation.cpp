#include "libcommon/flash/flashinformation.h"

#include "libcommon/core/status.h"
#include "libcommon/device/didevicehelper.h"

namespace {

typedef boost::shared_ptr<DIDevice> DevicePtr;
typedef boost::shared_ptr<DIModule> ModulePtr;

// A module without property groups simply lacks every property.
bool readModuleProperty(const ModulePtr& module, const std::string& name, uint32_t* value) {
    std::vector<boost::shared_ptr<DIPropertyGroup>> groups = module->getPropertyGroups();
    if (groups.empty() || !groups.front()) return false;
    unsigned int read = 0;
    if (!DIDeviceHelper::getUint32PropertyValue(groups.front(), name, &read)) return false;
    *value = read;
    return true;
}

void fillUserPage(FlashInformation& info, const boost::shared_ptr<DIAddressSpace>& base) {
    boost::shared_ptr<DIMemorySegment> userPage = base->getMemorySegment("USER_PAGE");
    info.hasUserPage = bool(userPage);
    info.userPageAddress = userPage ? userPage->getStart() : 0;
}

[[noreturn]] void deviceFileError(const char* format, const std::string& argument) {
    CoreException::createAndThrow("", ERR_DEVICE_FILE, format, argument.c_str());
}

[[noreturn]] void deviceFileError(const std::string& message) {
    CoreException::createAndThrow("", ERR_DEVICE_FILE, message);
}

}  // namespace

uint64_t FlashInformation::getRegisterOffsetOrThrow(boost::shared_ptr<DIRegisterGroup> group,
                                                    const std::string& name) const {
    boost::shared_ptr<DIRegister> reg = group ? group->getRegister(name) : nullptr;
    if (!reg) deviceFileError("Could not find flash module %s register.", name);
    return reg->getOffset();
}

EeFlashInformation::EeFlashInformation(DevicePtr device, ModulePtr module,
                                       boost::shared_ptr<DIMemorySegment> segment) {
    moduleName = module->getName();
    startAddress = segment->getStart();
    size = uint32_t(segment->getSize());
    pageSize = segment->getPageSize();

    boost::shared_ptr<DIAddressSpace> base = device->getAddressSpace("base");
    if (pageSize == 0)
        deviceFileError("XML device file is missing the page size for %s flash segment.",
                        segment->getName());
    if (!base) deviceFileError("XML device file is missing the base address space.");
    fillUserPage(*this, base);
    setSectorSize(device);

    if (!readModuleProperty(module, "PAGES_PR_REGION", &pagesPerRegion))
        deviceFileError("Could not find PAGES_PR_REGION Property for EEFlash  Flash Module");
    if (!readModuleProperty(module, "FLASH_SIZE", &propertyFlashSize)) propertyFlashSize = 0;
    if (!readModuleProperty(module, "PAGE_SIZE", &propertyPageSize)) propertyPageSize = 0;

    boost::shared_ptr<DIAddressSpace> lockbits = device->getAddressSpace("lockbits");
    if (!lockbits) deviceFileError("Could not find \"lockbits\" address space for EEFlash Module");
    if (propertyFlashSize != 0 && propertyPageSize != 0 && pagesPerRegion != 0)
        lockByteCount = ((propertyFlashSize / propertyPageSize) / pagesPerRegion) >> 3;
    else
        lockByteCount = uint32_t(lockbits->getSize());

    boost::shared_ptr<DIRegisterGroup> group = module->getRegisterGroup(moduleName);
    if (!group) deviceFileError("Could not find  %s Module register group.", moduleName);
    registerBase = group->getAddress();

    uint64_t* const targets[] = {&firstRegister, &secondRegister, &thirdRegister, &fourthRegister};
    const char* const names[] = {"EEFC_FMR", "EEFC_FCR", "EEFC_FSR", "EEFC_FRR"};
    for (int i = 0; i < 4; ++i) {
        getRegisterOffsetOrThrow(group, names[i]);
        *targets[i] = group->getRegister(names[i])->getAddress();
    }

    // A "GPNVMBITS" group without registers describes no fuse bits; it is
    // treated like a missing group so the mask keeps its default.
    ModulePtr fuses = device->getModule("FUSES");
    boost::shared_ptr<DIRegisterGroup> gpnvm =
        fuses ? fuses->getRegisterGroup("GPNVMBITS") : nullptr;
    if (gpnvm && !gpnvm->getRegisters().empty()) {
        gpnvmMask = 0;
        for (const auto& field : gpnvm->getRegisters().front()->getBitfields())
            gpnvmMask |= uint32_t(field->getMask());
    }
}

void EeFlashInformation::setSectorSize(DevicePtr device) {
    const std::string architecture = device->getArchitecture();
    if (architecture == "CORTEX-M4") {
        eraseUnitPages = 8;
        largeEraseUnitPages = 32;
    }
    if (device->getFamily() == "HGR2" || architecture == "CORTEX-M7") {
        eraseUnitPages = 16;
        largeEraseUnitPages = 32;
    }
}

NvmControllerInformation::NvmControllerInformation(DevicePtr device) {
    ModulePtr module = device->getModule("NVMCTRL");
    ModulePtr definition = module ? module->getDefinition() : nullptr;
    if (definition) {
        isU2409 = definition->getModuleId() == "U2409";
        isU2802 = definition->getModuleId() == "U2802";
    }
    boost::shared_ptr<DIAddressSpace> base = device->getAddressSpace("base");
    boost::shared_ptr<DIMemorySegment> flash = base ? base->getMemorySegment("FLASH") : nullptr;
    if (!module || !flash)
        throw GenericError(
            std::string("Memory segment description error in the VXDF file(no "
                        "NVMCTRL, addres space element or FLASH segment)."));

    moduleName = module->getName();
    startAddress = flash->getStart();
    size = uint32_t(flash->getSize());
    pageSize = flash->getPageSize();
    if (pageSize == 0) throw GenericError(std::string("Page size cannot be 0."));

    boost::shared_ptr<DIMemorySegment> userPage = base->getMemorySegment("USER_PAGE");
    if (!userPage) userPage = base->getMemorySegment("AUX0");
    hasUserPage = bool(userPage);
    userPageAddress = userPage ? userPage->getStart() : 0;
    userPageSize = userPage ? userPage->getPageSize() : 0;
    userPageOffset = userPageAddress - startAddress;

    boost::shared_ptr<DIMemorySegment> rww = base->getMemorySegment(isU2802 ? "DATAFLASH" : "RWW");
    hasRwwSection = bool(rww);
    if (rww) {
        rwwStart = rww->getStart();
        rwwSize = rww->getSize();
        rwwOffset = rwwStart - startAddress;
    }

    boost::shared_ptr<DIRegisterGroup> group = module->getRegisterGroup(moduleName);
    if (!group) deviceFileError("Could not find  NVMCTRL register group.");
    registerBase = group->getAddress();

    intflagWidth = 4;
    configRegisterWidth = 4;
    // U2409 swaps the roles of CTRLA and CTRLB.
    const char* const commandName = isU2409 ? "CTRLB" : "CTRLA";
    const char* const configName = isU2409 ? "CTRLA" : "CTRLB";
    for (const auto& regGroup : module->getRegisterGroups()) {
        for (const auto& reg : regGroup->getRegisters()) {
            const std::string name = reg->getName();
            if (name == commandName) {
                commandRegisterOffset = uint32_t(reg->getOffset());
                commandRegisterWidth = reg->getByteSize();
            } else if (name == configName) {
                configRegisterOffset = uint32_t(reg->getOffset());
                configRegisterWidth = reg->getByteSize();
            } else if (name == "STATUS") {
                statusWidth = reg->getByteSize();
            } else if (name == "INTFLAG") {
                intflagWidth = reg->getByteSize();
            }
        }
    }
    eraseUnitPages = isU2409 ? 16 : 4;
}

PeltFlashInformation::PeltFlashInformation(DevicePtr device) {
    boost::shared_ptr<DIAddressSpace> base = device->getAddressSpace("base");
    if (!base) throw GenericError(std::string("No 'base' address space found in the VXDF file"));
    boost::shared_ptr<DIMemorySegment> flash = base->getMemorySegment("FLASH");
    if (!flash) throw GenericError(std::string("No 'FLASH' mems segment found in the VXDF file"));
    ModulePtr module = getFlashControllerModule(device);

    moduleName = module->getName();
    startAddress = flash->getStart();
    size = uint32_t(flash->getSize());
    pageSize = flash->getPageSize();
    if (pageSize == 0) {
        std::vector<boost::shared_ptr<DIPropertyGroup>> groups = module->getPropertyGroups();
        if (groups.empty() || !groups.front())
            throw GenericError(std::string("Could not find flash pagesize from flash properties."));
        unsigned int value = 0;
        if (!DIDeviceHelper::getUint32PropertyValue(groups.front(), "PAGE_SIZE", &value))
            throw GenericError(std::string("Could not find PAGE_SIZE Property for PELT Flash"));
        pageSize = value;
    }
    fillUserPage(*this, base);

    if (!readModuleProperty(module, "PAGES_PR_REGION", &pagesPerRegion))
        deviceFileError("Could not find PAGES_PR_REGION Property for PELT Flash Module");
    lockByteCount = 2;

    boost::shared_ptr<DIRegisterGroup> group = module->getRegisterGroup(moduleName);
    if (!group) deviceFileError("Could not find  PELT Flash Module register group.");
    registerBase = group->getAddress();

    uint64_t* const targets[] = {&firstRegister, &secondRegister, &thirdRegister, &fuseHiRegister,
                                 &fuseLoRegister};
    const char* const names[] = {"FCR", "FCMD", "FSR", "FGPFRHI", "FGPFRLO"};
    for (int i = 0; i < 5; ++i)
        *targets[i] = registerBase + getRegisterOffsetOrThrow(group, names[i]);

    userPageOffset = 0x800000;
    rwwOffset = 0;
}

ModulePtr PeltFlashInformation::getFlashControllerModule(DevicePtr device) {
    for (const char* name : {"FLASHC", "FLASHCDW", "HFLASHC", "NVMCTRL"}) {
        if (ModulePtr module = device->getModule(name)) return module;
    }
    CoreException::createAndThrow("", ERR_DEVICE_FILE,
                                  "Could not find flash controller for PELT device.");
}

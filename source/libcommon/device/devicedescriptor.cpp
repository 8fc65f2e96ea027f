#include "libcommon/device/devicedescriptor.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/stringconstants.h"

namespace {

const std::string COMPONENT = "hil";

[[noreturn]] void fail(const std::string& message) {
    CoreException::createAndThrow(COMPONENT, ERR_DEVICE_SETUP, message);
}

// The descriptor keeps 32-bit numbers; wider description values keep their
// low half.
unsigned int low32(uint64_t value) {
    return static_cast<unsigned int>(value);
}

boost::shared_ptr<DIAddressSpace> baseSpace(const boost::shared_ptr<DIDevice>& device) {
    boost::shared_ptr<DIAddressSpace> base = device->getAddressSpace(ADDRSPACE_BASE);
    if (!base) fail("Could not find address space 'base' in the device XML file.");
    return base;
}

// The address of the module's register group of the same name, or 0 when the
// device has no such module.
unsigned int moduleAddress(const boost::shared_ptr<DIDevice>& device, const std::string& name) {
    boost::shared_ptr<DIModule> module = device->getModule(name);
    if (!module) return 0;
    boost::shared_ptr<DIRegisterGroup> group = module->getRegisterGroup(name);
    if (!group) fail("Could not find register group '" + name + "' in the device XML file.");
    return low32(group->getAddress());
}

void warn(const std::string& text) {
    if (gLogMask & LOG_MASK_WARN) BackendLogger::warn(L_HIL, text);
}

}  // namespace

DeviceDescriptor::DeviceDescriptor(boost::shared_ptr<DIDevice> device) {
    if (!device) fail("No device description given.");
    updateInfoFromDeviceInfo(device);
}

void DeviceDescriptor::updateInfoFromDeviceInfo(boost::shared_ptr<DIDevice> device) {
    name = device->getName();

    boost::shared_ptr<DIAddressSpace> base = baseSpace(device);
    boost::shared_ptr<DIMemorySegment> ram = base->getMemorySegment("SRAM");
    if (!ram) ram = base->getMemorySegment("CPU_RAM");
    if (!ram) fail("Could not find expected RAM memory segment in the device XML file.");
    internalSramAddress = low32(ram->getStart());
    internalSramSize = low32(ram->getSize());

    productNames.push_back(device->getName());
    peltFlashRev2 = isPeltFlashRev2(device);
    flashVaultSupport = false;

    boost::shared_ptr<DIModule> controller;
    for (const char* moduleName : {"FLASHC", "FLASHCDW", "HFLASHC"})
        if ((controller = device->getModule(moduleName))) break;
    if (controller) {
        setupPeltInternalFlash(controller);
    } else {
        controller = device->getModule("NVMCTRL");
        if (!controller) fail("Could not determine flash controller module from device XML file.");
        setupNvmFlash(device, controller);
    }

    delayBeforeReadingFlash = 0;
    numberOfResetDomains = 5;
    tarn32ResetGroup = 1;
    if (boost::shared_ptr<DIPropertyGroup> reset = device->getPropertyGroup("TARN32_RESET")) {
        if (boost::shared_ptr<DIProperty> domains = reset->getProperty("NumberOfResetDomains"))
            numberOfResetDomains = domains->getUint32Value();
        else
            warn(
                "The device description file did not specify NumberOfResetDomains. "
                "Defaulting to 5.");
        if (boost::shared_ptr<DIProperty> group = reset->getProperty("ResetGroup"))
            tarn32ResetGroup = group->getUint32Value();
        else
            warn(
                "The device descriptor file did not specify the property ResetGroup. "
                "Defaulting to 1.");
    } else {
        warn(
            "The device descriptor file did not specify TARN32_RESET properties. Defaults "
            "will be used.");
    }

    flashBufferPageRatio = 1;
    if (boost::shared_ptr<DIPropertyGroup> ocd = device->getPropertyGroup("OCD"))
        if (boost::shared_ptr<DIProperty> ratio = ocd->getProperty("BUFFERS_PER_FLASH_PAGE"))
            flashBufferPageRatio = ratio->getUint32Value();

    // A chip has either the newer SCIF clock block or the older PM; only the
    // first one found is recorded.
    if (device->getModule("SCIF"))
        scifAddress = moduleAddress(device, "SCIF");
    else
        pmAddress = moduleAddress(device, "PM");
    sLineBaseAddress = moduleAddress(device, "SL");
}

boost::shared_ptr<DIRegisterGroup> DeviceDescriptor::setupFlashController(
    boost::shared_ptr<DIModule> module) {
    boost::shared_ptr<DIRegisterGroup> group = module->getRegisterGroup(module->getName());
    if (!group) fail("Could not identify FLASH controller register group in the device XML file.");
    flashControllerAddress = low32(group->getAddress());
    flashControllerName = module->getName();
    return group;
}

void DeviceDescriptor::setupNvmFlash(boost::shared_ptr<DIDevice> device,
                                     boost::shared_ptr<DIModule> module) {
    setupFlashController(module);
    boost::shared_ptr<DIAddressSpace> base = baseSpace(device);
    std::vector<boost::shared_ptr<DIMemorySegment>> flashes =
        base->getMemorySegmentsByType("flash");
    if (flashes.size() != 1)
        fail("Expected exactly one memory segment of type 'flash' in the device XML file.");
    flashStart = low32(flashes.front()->getStart());
    flashSize = low32(flashes.front()->getSize());
    flashPageSize = flashes.front()->getPageSize();
    // Not a page count on this path: the consumers of NVM descriptors read
    // the field as a sixteenth of the flash size in bytes.
    flashPagesPerRegion = flashSize >> 4;
    boost::shared_ptr<DIMemorySegment> userPage = base->getMemorySegment("USER_PAGE");
    if (!userPage) fail("Could not find memory segment 'USER_PAGE' in the device XML file.");
    userPageAddress = low32(userPage->getStart());
    userPageSize = low32(userPage->getSize());
}

void DeviceDescriptor::setupPeltInternalFlash(boost::shared_ptr<DIModule> module) {
    boost::shared_ptr<DIRegisterGroup> group = setupFlashController(module);
    std::vector<boost::shared_ptr<DIPropertyGroup>> groups = module->getPropertyGroups();
    if (groups.empty()) fail("Found no FLASH controller properties in the device XML file.");
    boost::shared_ptr<DIPropertyGroup> properties = groups.front();
    auto property = [&properties](const char* propertyName) {
        boost::shared_ptr<DIProperty> found =
            properties ? properties->getProperty(propertyName) : boost::shared_ptr<DIProperty>();
        if (!found) fail(std::string("Could not read module property ") + propertyName);
        return found;
    };
    flashPagesPerRegion = property("PAGES_PR_REGION")->getWordValue();
    flashSize = property("FLASH_SIZE")->getSizeValue();
    flashPageSize = property("PAGE_SIZE")->getWordValue();
    // The Pelt parts map their flash here whatever the segments say.
    flashStart = 0x80000000;
    userPageAddress = property("USER_PAGE_ADDRESS")->getUint32Value();
    userPageSize = property("USER_PAGE_SIZE")->getUint32Value();

    // Offsets from the controller's base, not absolute addresses.
    if (boost::shared_ptr<DIRegister> hi = group->getRegister("FGPFRHI"))
        fuseGpHiOffset = low32(hi->getAddress()) - flashControllerAddress;
    else
        fuseGpHiOffset = 0;
    boost::shared_ptr<DIRegister> lo = group->getRegister("FGPFRLO");
    if (!lo) fail("Could not find register 'FGPFRLO' in the device XML file.");
    fuseGpLoOffset = low32(lo->getAddress()) - flashControllerAddress;
}

// Every Pelt part this library meets has the second revision of the flash
// controller, so the device is not asked.
bool DeviceDescriptor::isPeltFlashRev2(boost::shared_ptr<DIDevice>) {
    return true;
}

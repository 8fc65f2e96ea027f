#ifndef LIBCOMMON_TESTS_PROBE_FAKE_FAKECMSISDAP_H
#define LIBCOMMON_TESTS_PROBE_FAKE_FAKECMSISDAP_H

// A stand-in probe library for the binding's tests. Every function returns
// FAKE_RESULT_BASE plus its position in the binding's order (RDDI_Open 1,
// CMSIS_DAP_Commands 28), so a pointer bound to the wrong symbol shows. A
// few also answer through their arguments, as noted at each function.
//
// Built twice: complete, and without CMSIS_DAP_Commands (FAKE_WITHOUT_COMMANDS),
// the last function the binding looks up.

const int FAKE_RESULT_BASE = 7000;
const int FAKE_HANDLE = 0x5151;
const int FAKE_LAST_ERROR = 42;
const char FAKE_ERROR_TEXT[] = "fake probe error";
const char FAKE_LOG_TEXT[] = "fake probe log";

#endif

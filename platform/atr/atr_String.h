// atr_String.h: natural order of texts, translation and formats.
#pragma once

#include "atr_StringBase.h"
#include "os_Export.h"

#include <atomic>
#include <initializer_list>
#include <string>
#include <string_view>

/// Reading the setting is inlined, since every comparison of keys asks for it.
/// @internal use atr_getNaturalOrder and atr_setNaturalOrder
extern DDR_API std::atomic<int> atr_naturalOrderSetting;

/// Whether keys compare in natural order in this process: 0 (the setting at start) for byte order, anything
/// else for natural order.
inline int atr_getNaturalOrder() noexcept {
  return atr_naturalOrderSetting.load(std::memory_order_relaxed);
}

/// Changes how keys compare from now on. Collections that hold entries are not put in the new order and no
/// longer find them: change it before the first is made.
DDR_API void atr_setNaturalOrder(int naturalOrder) noexcept;

/// Natural order: runs of the digits 0 to 9 compare by their value, whatever their length; everything else
/// byte by byte, unsigned. "Model-2" comes before "Model-10". Texts that differ in leading zeros only
/// compare byte by byte, so that only identical texts are equal; the order is total.
/// @returns -1, 0 or 1
DDR_API int strnatcmp(char const* left, char const* right) noexcept;

/// The same for texts of known length, and faster: the common beginning is skipped eight bytes at a time.
DDR_API int strnatcmp(std::string_view left, std::string_view right) noexcept;

/// Gives the text for a message in the user's language; must not throw.
using atr_TranslateHook = std::string (*)(std::string_view text);

/// The message text in the user's language; the text itself while the host installed no hook.
DDR_API std::string atr_translate(std::string_view text);

/// Installs the host's translation for all threads; null removes it.
DDR_API void atr_setTranslate(atr_TranslateHook hook) noexcept;

/// Puts values into a message: each "%s" takes the next value, "%%" becomes "%", any other "%" stays as it
/// is. A "%s" without a value becomes nothing, a value without a "%s" is left out; values are not searched
/// again.
DDR_API std::string atr_SubstituteFormat(std::string_view format,
                                         std::initializer_list<std::string_view> values);

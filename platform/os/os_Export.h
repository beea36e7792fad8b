// os_Export.h: marks what a host may call across a shared library's edge.
#pragma once

/// Everything else is hidden: the libraries are compiled with hidden visibility.
#define DDR_API __attribute__((visibility("default")))

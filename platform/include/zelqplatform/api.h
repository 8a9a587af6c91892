#ifndef ZELQPLATFORM_API_H
#define ZELQPLATFORM_API_H

/// Marks what a shared library exports. Everything else is built with hidden visibility.
#define ZELQ_API __attribute__((visibility("default")))

/// Keeps a member of an exported class inside its library.
#define ZELQ_LOCAL __attribute__((visibility("hidden")))

#endif

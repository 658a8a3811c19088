#pragma once
#include <memory>

// Shared ownership of library objects. Back-links are plain pointers instead.
template <class T> using KPPDFRef = std::shared_ptr<T>;

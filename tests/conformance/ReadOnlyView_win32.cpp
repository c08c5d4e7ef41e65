#include "ReadOnlyView.h"

#include <utility>

namespace kx::test {

// The read-only attribute of a folder keeps nobody from changing what is in it.
ReadOnlyView::ReadOnlyView(std::filesystem::path folder) : m_folder(std::move(folder)) {}

ReadOnlyView::~ReadOnlyView() = default;

} // namespace kx::test

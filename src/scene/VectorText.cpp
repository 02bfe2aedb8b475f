#include "VectorText.h"

#include <vtkActor.h>
#include <vtkPolyDataMapper.h>
#include <vtkVectorText.h>

#include <charconv>

namespace Orlavex {

VectorText::VectorText()
    : source(vtkSmartPointer<vtkVectorText>::New()),
      mapper(vtkSmartPointer<vtkPolyDataMapper>::New()) {
    drawOutputOf(source, mapper);
    // The source has no text of its own and reports an error at every render
    // until it gets one; a text not yet set shows as nothing instead.
    source->SetText("");
}

VectorText::VectorText(const VectorText& other) = default;
VectorText& VectorText::operator=(const VectorText& other) = default;
VectorText::~VectorText() = default;

vtkVectorText* VectorText::getSource() const {
    return source;
}

// A null text is read as an empty one: vtkVectorText reports an error for
// every update while it has no text at all.
void VectorText::setText(const char* s) {
    source->SetText(s ? s : "");
}

void VectorText::setText(double v) {
    source->SetText((initText + formatNumber(v) + finalText).c_str());
}

void VectorText::setInitText(const char* s) {
    initText = s ? s : "";
}

void VectorText::setFinalText(const char* s) {
    if (s)
        finalText += s;
}

std::string VectorText::formatNumber(double v) {
    // std::to_chars ignores the process locale (printf would write a comma
    // under a German one) and rounds the exact binary value to the nearer
    // hundredth, as glibc's "%.2f" does. The largest double needs 309 digits
    // before the point.
    char buffer[400];
    const auto result =
        std::to_chars(buffer, buffer + sizeof buffer, v, std::chars_format::fixed, 2);
    if (result.ec != std::errc())
        return std::string();
    return std::string(buffer, result.ptr);
}

} // namespace Orlavex

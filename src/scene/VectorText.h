#pragma once

#include <Orlavex/scene/DrawableSource.h>

#include <string>

class vtkPolyDataMapper;
class vtkVectorText;

namespace Orlavex {

/// Text built as 3-D geometry, placed and coloured like any other drawable.
///
/// Besides plain text it can show a number between a fixed leading text and
/// a fixed trailing text: the link thread feeds it one value per cycle when
/// `getInteractiveValue()` is 1. Numbers always use a point as decimal
/// separator, whatever the process locale.
class ORLAVEX_EXPORT VectorText : public DrawableSource {
public:
    VectorText();
    VectorText(const VectorText& other);
    VectorText& operator=(const VectorText& other);
    ~VectorText() override;

    /// Shows exactly `s`; the leading and trailing texts play no part.
    void setText(const char* s);
    /// Shows the leading text, `v` with two decimals (as "%.2f" in the C
    /// locale) and the trailing text, with nothing between them.
    void setText(double v);
    /// Replaces the leading text; shows at the next `setText(double)`.
    void setInitText(const char* s);
    /// Appends to the trailing text (each call adds to what it holds); shows
    /// at the next `setText(double)`.
    void setFinalText(const char* s);

    /// 1: the simulation server sends one number for this text every cycle.
    void setInteractiveValue(int on) { interactiveValue = on; }
    int getInteractiveValue() const { return interactiveValue; }

    const std::string& getInitText() const { return initText; }
    const std::string& getFinalText() const { return finalText; }
    vtkVectorText* getSource() const;

    /// `v` as `setText(double)` writes it: fixed point, two decimals, C locale.
    static std::string formatNumber(double v);

private:
    vtkSmartPointer<vtkVectorText> source;
    vtkSmartPointer<vtkPolyDataMapper> mapper;
    std::string initText;
    std::string finalText;
    int interactiveValue = 0;
};

} // namespace Orlavex

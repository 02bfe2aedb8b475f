#include "CanvasButtons.h"

#include <Orlavex/display/Canvas.h>

#include <QGridLayout>
#include <QPushButton>

namespace Orlavex {

CanvasButtons::CanvasButtons(QWidget* parent)
    : Panel(parent), canvas(new Canvas(this)), renderer(canvas->renderer),
      saveButton(new QPushButton(this)), restoreButton(new QPushButton(this)),
      restoreInitialButton(new QPushButton(this)) {
    // Every widget is the panel's child from the start; the layouts below
    // only move the buttons into their row.
    auto* row = new QWidget(this);
    auto* grid = new QGridLayout;
    setLayoutPolicy("VBox");
    addWidget(row);
    grid->addWidget(saveButton, 0, 0);
    grid->addWidget(restoreButton, 0, 1);
    grid->addWidget(restoreInitialButton, 0, 2);
    row->setLayout(grid);
    addWidget(canvas);

    saveButton->setText(QStringLiteral("Save camera settings"));
    restoreButton->setText(QStringLiteral("Restore camera settings"));
    restoreInitialButton->setText(QStringLiteral("Restore initial camera settings"));

    connect(saveButton, &QPushButton::clicked, this, &CanvasButtons::saveA);
    connect(restoreButton, &QPushButton::clicked, this, &CanvasButtons::restoreA);
    connect(restoreInitialButton, &QPushButton::clicked, this, &CanvasButtons::restore0A);
}

CanvasButtons::~CanvasButtons() = default;

void CanvasButtons::saveA() {
    canvas->GetCamera();
}

void CanvasButtons::restoreA() {
    canvas->SetCamera();
}

void CanvasButtons::restore0A() {
    canvas->SetCamera0();
}

} // namespace Orlavex

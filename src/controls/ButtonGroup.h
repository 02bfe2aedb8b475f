#pragma once

#include <Orlavex/orlavex_export.h>

#include <QButtonGroup>

namespace Orlavex {

/// A plain button group (exclusive by default); the link thread keeps groups
/// by name.
class ORLAVEX_EXPORT ButtonGroup : public QButtonGroup {
    Q_OBJECT
public:
    explicit ButtonGroup(QObject* parent = nullptr);
    ~ButtonGroup() override;
};

} // namespace Orlavex

#pragma once

#include <Orlavex/scene/Drawable.h>

#include <QMetaType>
#include <QString>
#include <QVector>

#include <memory>

class QwtPlotCurve;
class QwtSymbol;

namespace Orlavex {

class PlottingPanelQwt;

/// One curve of a time plot, fed by the simulation server.
///
/// With one point per batch (`getNReceivedPoints()` = 1) the trail grows
/// point by point, keeps every (nSkip + 1)-th point and holds at most
/// `getNMaxPoints()` of them, dropping the oldest; with any other batch size
/// each batch replaces the whole curve.
///
/// A copy shares the curve, its symbol, the plot and the point buffers; its
/// settings and skip phase are its own. The last copy to go deletes the
/// curve, which takes it off its plot; if the plot goes first it deletes the
/// curve itself, and the trail then only keeps its buffers.
class ORLAVEX_EXPORT TrailQwt : public Drawable {
public:
    explicit TrailQwt(const QString& title);
    TrailQwt(const TrailQwt&) = default;
    TrailQwt& operator=(const TrailQwt&) = default;
    ~TrailQwt() override;

    /// Attaches the curve to `p` (null takes it off its plot).
    void attachToPlot(PlottingPanelQwt* p);
    /// Takes one batch: in append mode x = element 0, y = element 1; in
    /// replace mode n x values followed by n y values. The vector is only
    /// read during the call; null takes no batch. GUI thread only.
    void insertXY(QVector<double>* points);
    /// The same for a batch of `count` values at `points` (a negative count
    /// holds none), only read during the call; null takes no batch.
    void insertXY(const double* points, int count);

    int getNMaxPoints() const { return nMaxPoints; }
    /// Stores n when 1 <= n <= 500, otherwise 500.
    void setNMaxPoints(int n);
    int getNSkip() const { return nSkip; }
    /// Points skipped between two kept points; the skip cycle starts afresh.
    void setNSkip(int n);
    int getNReceivedPoints() const { return nReceivedPoints; }
    /// Points per batch: 1 appends, any other value replaces.
    void setNReceivedPoints(int n) { nReceivedPoints = n; }

    /// Number of points in the append buffers.
    int getNStored() const;
    /// The append rule, in one place for the trail and for whoever mirrors
    /// its points (a shared lab's publisher): offers the point (`x`, `y`) to
    /// buffers that keep every (`skip` + 1)-th point and at most `maxPoints`,
    /// dropping the oldest; `skipPhase` is the caller's skip phase. Returns
    /// how many of the oldest points left the buffers.
    static int appendPoint(QVector<double>& xs, QVector<double>& ys, int& skipPhase, int skip,
                           int maxPoints, double x, double y);
    /// The curve; null once the plot it was attached to has deleted it.
    QwtPlotCurve* getCurve() const;
    /// The point marker (no markers drawn unless its style is changed).
    QwtSymbol* getSymbol() const;
    /// The plot given to `attachToPlot`; null before or once it is gone.
    PlottingPanelQwt* getPlot() const;

private:
    struct Shared;
    class Curve;
    std::shared_ptr<Shared> d;
    int nMaxPoints = 500;
    int nSkip = 0;
    int skipPhase = 0;
    int nReceivedPoints = 1;
};

} // namespace Orlavex

Q_DECLARE_METATYPE(Orlavex::TrailQwt*)

#include "TrailQwt.h"

#include <Orlavex/display/PlottingPanelQwt.h>

#include <QPointer>
#include <qwt_plot_curve.h>
#include <qwt_symbol.h>

namespace Orlavex {

namespace {
constexpr int kMaxPoints = 500;
}

struct TrailQwt::Shared {
    QVector<double> x;
    QVector<double> y;
    QPointer<PlottingPanelQwt> plot;
    /// Null once the plot it was attached to has deleted it.
    std::unique_ptr<Curve> curve;
    QwtSymbol* symbol = nullptr; // owned by the curve

    ~Shared();
};

// A plot deletes the items still attached to it when it goes; the curve
// tells the trail, so that the trail never touches it again.
class TrailQwt::Curve : public QwtPlotCurve {
public:
    Curve(const QString& title, Shared* owner) : QwtPlotCurve(title), owner(owner) {}
    ~Curve() override {
        if (owner) {
            // Already being deleted by the plot: the trail only lets go.
            (void)owner->curve.release();
            owner->symbol = nullptr; // the curve owns its symbol
        }
    }
    Shared* owner;
};

// Written out so that the curve does not report its end into the pointer
// that is deleting it, and goes while the buffers it draws from still exist
// (deleting it detaches it from its plot).
TrailQwt::Shared::~Shared() {
    if (curve) {
        curve->owner = nullptr;
        curve.reset();
    }
}

TrailQwt::TrailQwt(const QString& title) : d(std::make_shared<Shared>()) {
    d->curve = std::make_unique<Curve>(title, d.get());
    d->symbol = new QwtSymbol(QwtSymbol::NoSymbol);
    d->symbol->setSize(5, 5);
    d->curve->setSymbol(d->symbol); // the curve takes ownership
}

TrailQwt::~TrailQwt() = default;

void TrailQwt::attachToPlot(PlottingPanelQwt* p) {
    if (d->curve)
        d->curve->attach(p);
    d->plot = p;
}

void TrailQwt::setNMaxPoints(int n) {
    nMaxPoints = (n >= 1 && n <= kMaxPoints) ? n : kMaxPoints;
}

void TrailQwt::setNSkip(int n) {
    nSkip = n;
    // A phase left over from an earlier skip value could otherwise stop the
    // trail from ever keeping a point again (with nSkip 0 the phase never moves).
    skipPhase = 0;
}

int TrailQwt::getNStored() const {
    return d->x.size();
}

QwtPlotCurve* TrailQwt::getCurve() const {
    return d->curve.get();
}

QwtSymbol* TrailQwt::getSymbol() const {
    return d->symbol;
}

PlottingPanelQwt* TrailQwt::getPlot() const {
    return d->plot;
}

void TrailQwt::insertXY(QVector<double>* points) {
    if (points)
        insertXY(points->constData(), points->size());
}

void TrailQwt::insertXY(const double* points, int count) {
    if (!points)
        return;
    count = qMax(count, 0);
    if (nReceivedPoints != 1) {
        // A negative batch size holds no points: the curve becomes empty. A
        // batch shorter than its size says cannot be split into its x and y
        // blocks and is dropped, leaving the curve as it was.
        const int n = qMax(nReceivedPoints, 0);
        if (count < 2 * qint64(n))
            return;
        if (d->curve)
            d->curve->setSamples(points, points + n, n);
        return;
    }
    if (count < 2)
        return;
    appendPoint(d->x, d->y, skipPhase, nSkip, nMaxPoints, points[0], points[1]);
    if (d->curve)
        d->curve->setRawSamples(d->x.constData(), d->y.constData(), d->x.size());
}

int TrailQwt::appendPoint(QVector<double>& xs, QVector<double>& ys, int& skipPhase, int skip,
                          int maxPoints, double x, double y) {
    if (skip > 0)
        skipPhase = int((qint64(skipPhase) + 1) % (qint64(skip) + 1));
    // Removes as many points as needed, not just one, so that a limit lowered
    // while the buffers were fuller takes effect at the next point; with an
    // unchanged limit it is exactly one.
    const int excess = xs.size() - maxPoints + 1;
    int dropped = 0;
    if (maxPoints > 0 && excess > 0) {
        xs.remove(0, excess);
        ys.remove(0, excess);
        dropped = excess;
    }
    if (skipPhase == 0) {
        xs.append(x);
        ys.append(y);
    }
    return dropped;
}

} // namespace Orlavex

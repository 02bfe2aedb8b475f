#pragma once

#include <Orlavex/scene/DrawableSource.h>

#include <vector>

class vtkActor;
class vtkArrowSource;
class vtkDataSetMapper;
class vtkFloatArray;
class vtkGlyph3D;
class vtkLookupTable;
class vtkPoints;
class vtkPolyData;
class vtkPolyDataMapper;
class vtkRectilinearGrid;

namespace Orlavex {

/// A field sampled on a block of cells: a rectilinear grid whose cells are
/// coloured through a colour table, with an optional layer of arrow glyphs
/// showing one vector per grid position, scaled by a magnitude and coloured
/// through a second table.
///
/// The inherited actor and property show the grid; the glyphs have an actor
/// of their own (`getGlyphActor`), which the placement setters of
/// `DrawableSource` do not move: glyph positions are world positions worked
/// out from the origin, the lengths and the cell counts.
///
/// Value orders: cell colours follow the grid's cell order (x fastest, then
/// y, then z); magnitudes and vectors follow the glyph positions (x slowest,
/// z fastest). A vector is three consecutive floats.
///
/// A copy shares every VTK object (each copy holding its own references) and
/// has its own copies of the stored colour values and magnitudes.
class ORLAVEX_EXPORT PlanarGrid : public DrawableSource {
public:
    /// Builds the grid with `nx` × `ny` × `nz` cells over the given lengths,
    /// its first corner at (`x0`, `y0`, `z0`). `cellColors` and
    /// `vectorMagnitude` must hold `getCellNumber()` values each; they are
    /// copied. The twelve parameters from `hueMin` to `ramp` configure the
    /// cell colour table as `setCellLUT` does. A nonzero `displayVectors`
    /// creates the glyph layer, for the object's whole life.
    PlanarGrid(float x0, float y0, float z0, float lengthx, float lengthy, float lengthz, int nx,
               int ny, int nz, const float* cellColors, const float* vectorMagnitude, float hueMin,
               float hueMax, float saturationMin, float saturationMax, float valueMin,
               float valueMax, float alphaMin, float alphaMax, float rangeMin, float rangeMax,
               int scale, int ramp, int displayVectors);
    PlanarGrid(const PlanarGrid& other);
    PlanarGrid& operator=(const PlanarGrid& other);
    ~PlanarGrid() override;

    /// Adds the grid's actor to the renderer, and the glyph actor when the
    /// grid shows vectors.
    void paint() override;

    /// Number of values in each value array: the product of the cell counts
    /// above 1, fixed at construction.
    int getCellNumber() const { return cellNumber; }
    /// Nonzero when the glyph layer exists and its setters act.
    int getDisplayVectors() const { return displayVectors; }

    /// Replaces the first `getCellNumber()` cell colour values. A shorter
    /// vector stores what it holds and then throws std::out_of_range.
    void setCellColors(const std::vector<float>& colors);
    /// Replaces the first `min(count, getCellNumber())` cell colour values,
    /// read from `values` in place (no copy).
    void setCellColors(const float* values, int count);

    /// Configures the cell colour table. `scale` 1 is linear, anything else
    /// base-10 logarithmic; `ramp` 1 is linear, anything else an S-curve.
    /// (`rangeMin`, `rangeMax`) decides which cell values span the colours.
    void setCellLUT(float hueMin, float hueMax, float saturationMin, float saturationMax,
                    float valueMin, float valueMax, float alphaMin, float alphaMax, float rangeMin,
                    float rangeMax, int scale, int ramp);
    /// Configures the glyph colour table, with the parameters of `setCellLUT`.
    void setVectorLUT(float hueMin, float hueMax, float saturationMin, float saturationMax,
                      float valueMin, float valueMax, float alphaMin, float alphaMax,
                      float rangeMin, float rangeMax, int scale, int ramp);

    /// Reads `getCellNumber()` magnitudes from `m`; does nothing (and reads
    /// nothing) without the glyph layer.
    void setVectorMagnitude(const float* m);
    /// Reads 3 × `getCellNumber()` vector components from `v`; does nothing
    /// (and reads nothing) without the glyph layer.
    void setVectors(const float* v);
    /// The glyph scale factor: an arrow is this times its magnitude long.
    /// Does nothing without the glyph layer.
    void setScaleVector(float s);

    /// Where a glyph sits within its cell, as fractions of the spacing;
    /// takes effect at the next rebuild of the glyph positions.
    void setCellPoints(float fx, float fy, float fz);
    /// The fractions last given to `setCellPoints` (0.5 each at first).
    const float* getCellPoints() const { return cellPoints; }
    /// Stores the origin only: the next `setLengthx`/`y`/`z` or
    /// `setDimensions` moves the lines (and glyphs) it rebuilds.
    void setx0y0z0(float x0, float y0, float z0);
    void setLengthx(float L);
    void setLengthy(float L);
    void setLengthz(float L);
    /// `setLengthx`, `setLengthy` and `setLengthz` in one go, with a single
    /// rebuild of the glyph positions instead of three (the grid record's path).
    void setLengths(float Lx, float Ly, float Lz);
    /// Re-spaces the grid with `nx` × `ny` × `nz` grid lines (lines, not
    /// cells). The value arrays keep their size, so the resulting number of
    /// cells must not exceed `getCellNumber()`; a call that would is refused.
    void setDimensions(int nx, int ny, int nz);

    float getLengthx() const { return lengthx; }
    float getLengthy() const { return lengthy; }
    float getLengthz() const { return lengthz; }
    float getX0() const { return x0; }
    float getY0() const { return y0; }
    float getZ0() const { return z0; }
    /// Counts as last given to the constructor (cells) or `setDimensions` (lines).
    int getNx() const { return nx; }
    int getNy() const { return ny; }
    int getNz() const { return nz; }
    float getDx() const { return dx; }
    float getDy() const { return dy; }
    float getDz() const { return dz; }
    float getScaleVector() const { return scaleVector; }
    /// The colour values given to the constructor and the magnitudes last given.
    const std::vector<float>& getStoredCellColors() const { return cellColors; }
    const std::vector<float>& getStoredVectorMagnitude() const { return vectorMagnitude; }

    vtkRectilinearGrid* getGrid() const;
    vtkFloatArray* getXCoordinates() const;
    vtkFloatArray* getYCoordinates() const;
    vtkFloatArray* getZCoordinates() const;
    vtkFloatArray* getScalars() const;
    vtkFloatArray* getMagnitudes() const;
    vtkFloatArray* getVectors() const;
    vtkLookupTable* getCellLUT() const;
    vtkLookupTable* getVectorLUT() const;
    vtkDataSetMapper* getMapper() const;
    vtkGlyph3D* getGlyph() const;
    vtkActor* getGlyphActor() const;
    vtkPolyData* getGlyphInput() const;
    vtkPoints* getGlyphPoints() const;

private:
    static void fillCoordinates(vtkFloatArray* coordinates, int count, float spacing, float origin);
    /// One axis of setLengthx/y/z: length, spacing, line positions, glyphs.
    void setAxisLength(float L, float& length, int cells, float& spacing,
                       vtkFloatArray* coordinates, float origin, bool rebuildGlyphs = true);
    void buildGlyphPoints();

    float lengthx, lengthy, lengthz;
    float x0, y0, z0;
    int nx, ny, nz;
    int cellNumber = 1;
    float dx = 0, dy = 0, dz = 0;
    std::vector<float> cellColors;
    std::vector<float> vectorMagnitude;
    // Declared before their consumers, so that a consumer lets go of what it
    // reads before the object itself is released.
    vtkSmartPointer<vtkFloatArray> xCoordinates;
    vtkSmartPointer<vtkFloatArray> yCoordinates;
    vtkSmartPointer<vtkFloatArray> zCoordinates;
    vtkSmartPointer<vtkFloatArray> scalars;
    vtkSmartPointer<vtkFloatArray> magnitudes;
    vtkSmartPointer<vtkFloatArray> vectors;
    vtkSmartPointer<vtkLookupTable> cellLUT;
    vtkSmartPointer<vtkLookupTable> vectorLUT;
    vtkSmartPointer<vtkRectilinearGrid> grid;
    vtkSmartPointer<vtkDataSetMapper> mapper;
    vtkSmartPointer<vtkPoints> glyphPoints;
    vtkSmartPointer<vtkPolyData> glyphInput;
    vtkSmartPointer<vtkArrowSource> arrow;
    vtkSmartPointer<vtkGlyph3D> glyph;
    vtkSmartPointer<vtkPolyDataMapper> glyphMapper;
    vtkSmartPointer<vtkActor> glyphActor;
    int displayVectors = 0;
    float cellPoints[3] = {0.5f, 0.5f, 0.5f};
    float scaleVector = 1.0f;
};

} // namespace Orlavex

// Rotations in degrees.
#ifndef QX_TURN_FXH
#define QX_TURN_FXH

// Returns the cosine and the sine, to 32-bit floats: devices may be off by 1 / 2048, a tenth of a pixel in a
// large picture. Quarter turns are exact. The series of Taylor, over an eighth of a turn to either side.
float2 turnOf(float degrees)
{
    float quarters = floor(degrees / 90.0 + 0.5);
    float a = (degrees - 90.0 * quarters) * 0.0174532925;
    float b = a * a;
    float sine = a * (1.0 - b / 6.0 * (1.0 - b / 20.0 * (1.0 - b / 42.0 * (1.0 - b / 72.0))));
    float cosine = 1.0 - b / 2.0 * (1.0 - b / 12.0 * (1.0 - b / 30.0 * (1.0 - b / 56.0)));
    int quarter = int(quarters) & 3;
    float2 even = quarter == 0 ? float2(cosine, sine) : float2(-cosine, -sine);
    float2 odd = quarter == 1 ? float2(-sine, cosine) : float2(sine, -cosine);
    return (quarter & 1) == 0 ? even : odd;
}

#endif

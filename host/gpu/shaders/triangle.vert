#version 450

#ifdef ROWS
// What is the same for every fragment comes along with the triangle.
layout(push_constant) uniform Rows
{
    vec4 rows[8];
};
layout(location = 0) flat out vec4 row0;
layout(location = 1) flat out vec4 row1;
layout(location = 2) flat out vec4 row2;
layout(location = 3) flat out vec4 row3;
layout(location = 4) flat out vec4 row4;
layout(location = 5) flat out vec4 row5;
layout(location = 6) flat out vec4 row6;
layout(location = 7) flat out vec4 row7;
#endif

// One triangle that covers the target. No vertex buffers.
void main()
{
    const vec2 corner = vec2((gl_VertexIndex << 1) & 2, gl_VertexIndex & 2);
    gl_Position = vec4(corner * 2.0 - 1.0, 0.0, 1.0);
#ifdef ROWS
    row0 = rows[0];
    row1 = rows[1];
    row2 = rows[2];
    row3 = rows[3];
    row4 = rows[4];
    row5 = rows[5];
    row6 = rows[6];
    row7 = rows[7];
#endif
}

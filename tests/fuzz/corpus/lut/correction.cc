6<ColorCorrection id="x"><SOPNode><Slope>1.1 0.9 1.0</Slope><Offset>0.01 0 0.02</Offset><Power>1.2 1 1.1</Power></SOPNode><SatNode><Saturation>0.9</Saturation></SatNode></ColorCorrection>

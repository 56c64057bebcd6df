// Frame 26 of 36.
#version 3.7;

#declare Frame = 26;
#declare Frames = 36;
#declare Turn = 25 / 36;
#declare Heading = -13.156;
#declare Flame = 1.003;

#include "orrery.inc"

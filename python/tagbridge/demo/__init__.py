"""The demonstration: reads every image of TIFF files through the gateway and says what is in it."""

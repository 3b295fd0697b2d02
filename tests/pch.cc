// Nothing but the anchor of the precompiled header that the test programs share.

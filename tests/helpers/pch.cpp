// Gives the helpers library a source of its own, so that its precompiled header can be shared by every room.

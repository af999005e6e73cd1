# The first thing the project does: it asks for another version.
find_package(mailtree 2 CONFIG REQUIRED)

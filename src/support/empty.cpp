// Keeps this target non-empty until its first source lands.

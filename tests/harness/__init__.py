"""What the end-to-end tests, the demo and the bench share: the Launcher's surroundings (servers,
game folders, published trees), its file formats and dialogs, and the means to run and watch it."""

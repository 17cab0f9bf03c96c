"""How much of everything the end-to-end measurements do."""


class Sizes:
    def __init__(self, quick):
        self.rounds = 1 if quick else 7
        self.rows = 200 if quick else 10_000
        self.gets = 200 if quick else 10_000
        self.growth = (50, 100) if quick else (100, 1_000, 10_000, 100_000)
        self.growth_rows = 100 if quick else 20_000  # walked at least at each size, in each round
        self.growth_rounds = 1 if quick else 5
        self.managers, self.churn_rounds = (2, 1) if quick else (50, 3)
        self.informs = 50 if quick else 5_000
        self.connect = (100, 200) if quick else (5_000, 50_000)
        self.scraped, self.scrapes = (100, 2) if quick else (1_000, 20)
        self.rest_rounds, self.rest_seconds = (1, 1) if quick else (3, 10)
        self.definitions = 100 if quick else 5_000
        self.single_alarms, self.stream_alarms = (20, 50) if quick else (1_000, 5_000)
        self.peer_rows, self.peer_rounds = (20, 1) if quick else (1_000, 3)

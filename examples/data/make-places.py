#!/usr/bin/env python3
"""Makes a fence list for the zone builder from GeoNames populated places.

Reads the cities1000 table as CSV (columns geonameid,name,country,feature_code,
admin_code,population,lat,lon; gzip or plain) and writes, in the builder's CSV
format id,name,lat,lon,radius, every place within --margin-km of a latitude and
longitude box. The id is "gn" + geonameid; the radius grows with population,
300 m + 60 m * sqrt(population), at most 3,000 m.

    make-places.py cities1000.csv.gz --box 51.337 51.391 0.695 0.760 --margin-km 15 > kent-places.csv
"""
import argparse
import csv
import gzip
import math
import sys

EARTH_RADIUS_M = 6371008.8


def distance_m(lat1, lon1, lat2, lon2):
    """Great-circle distance on a sphere; plenty for choosing places."""
    p1, p2 = math.radians(lat1), math.radians(lat2)
    dp, dl = p2 - p1, math.radians(lon2 - lon1)
    h = math.sin(dp / 2) ** 2 + math.cos(p1) * math.cos(p2) * math.sin(dl / 2) ** 2
    return 2 * EARTH_RADIUS_M * math.asin(math.sqrt(h))


def distance_to_box_m(lat, lon, south, north, west, east):
    return distance_m(lat, lon, min(max(lat, south), north), min(max(lon, west), east))


def radius_m(population):
    return round(min(3000.0, 300.0 + 60.0 * math.sqrt(population)))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("cities", help="cities1000 table, .csv or .csv.gz")
    parser.add_argument("--box", nargs=4, type=float, required=True, metavar=("SOUTH", "NORTH", "WEST", "EAST"))
    parser.add_argument("--margin-km", type=float, required=True)
    args = parser.parse_args()
    south, north, west, east = args.box

    opener = gzip.open if args.cities.endswith(".gz") else open
    out = csv.writer(sys.stdout, lineterminator="\n")
    out.writerow(["id", "name", "lat", "lon", "radius"])
    with opener(args.cities, "rt", encoding="utf-8", newline="") as table:
        for row in csv.DictReader(table):
            lat, lon = float(row["lat"]), float(row["lon"])
            if distance_to_box_m(lat, lon, south, north, west, east) > args.margin_km * 1000:
                continue
            population = int(row["population"] or 0)
            out.writerow(["gn" + row["geonameid"], row["name"], row["lat"], row["lon"], radius_m(population)])


if __name__ == "__main__":
    main()
